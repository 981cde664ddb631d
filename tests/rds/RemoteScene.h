#pragma once

#include "ChangeReports.h"
#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "rds.h"
#include "rds_StoredClasses.h"
#include "rfm_Library.h"

#include <gtest/gtest.h>
#include <string>

// The library is up, the registry and the thread's history of changes are empty.
class RemoteScene : public ::testing::Test
{
protected:
    void SetUp() override
    {
        rfm_initialize(m_Count);
        History().Clear();
    }
    void TearDown() override
    {
        History().Clear();
        rfm_finalize(m_Count);
    }

    static rds_RemoteConnectionsRep& Registry()
    {
        return omi_Singleton<rds_RemoteConnectionsRep>::Instance();
    }
    static rds_RemoteConnections& Connections() { return Registry().Connections(); }

    static rds_RemoteConnection Connection(const char* name, const char* host, int port,
                                           const char* directory)
    {
        return {name, host,  directory, "rundriver", rds_RemoteLoginMechanismEnm::SSH,
                "",   86400, 40000,     port,        true};
    }
    // The registered connection of the examples.
    static void AddBox1()
    {
        Connections().Insert("box1", Connection("box1", "hpc7", 40001, "/scratch/run"));
        Reports();
    }

    int m_Count = 0;
};

// A record as somebody else may have stored it: each part can be set apart, or left out.
struct StoredRecord
{
    const char* status = "DISCONNECTED";
    const char* login = "SSH";
    bool transient = true;
    cow_String key = {};

    cow_String Bytes() const
    {
        cls_WriteStream written;
        const cls_WriteVisitor visitor = written.Visitor();
        visitor.StartWrite(rds_RemoteConnection::TypeId(), cls_Uid());
        visitor.WriteString(rds_HostNameField, "hpc7");
        if (status != nullptr) visitor.WriteString(rds_RemoteConnectionStatusField, status);
        if (login != nullptr) visitor.WriteString(rds_RemoteLoginMechanismField, login);
        visitor.WriteBool(rds_TransientField, transient);
        visitor.WriteString(rds_qlnsrvdKeyField, key);
        return written.Bytes();
    }
    rds_RemoteConnection Read() const
    {
        const cls_ReadStream stream(Bytes());
        return rds_RemoteConnection(stream.Visitor(0));
    }
};
