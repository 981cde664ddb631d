add_area(connection_tests
  rds/rds_Library_test.cpp
  rds/rds_RemoteConnection_test.cpp
  rds/rds_RemoteConnectionsRep_test.cpp
)
