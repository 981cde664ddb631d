#include "rds_RemoteConnection.h"

#include "DamagedStream.h"
#include "RemoteScene.h"
#include "Thrown.h"
#include "cls_TypeAdapter.h"
#include "omu_ValueErrorException.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>

using Status = rds_RemoteConnectionStatusEnm;
using Login = rds_RemoteLoginMechanismEnm;
using StatusName = omu_PrimEnum<Status, 1>;
using LoginName = omu_PrimEnum<Login, 1>;

namespace
{
class ARemoteConnection : public RemoteScene
{
protected:
    static rds_RemoteConnection Short()
    {
        return {"box1", "hpc7", "/scratch/run", "rundriver", Login::RSH, "/opt/ssh", true};
    }
    static rds_RemoteConnection Long()
    {
        return {"box2", "hpc8", "/data", "driver", Login::SSH, "", 60, 40000, 40001, false};
    }
    static cow_String Written(const rds_RemoteConnection& connection)
    {
        cls_WriteStream written;
        connection.DBWrite(written.Visitor());
        return written.Bytes();
    }
    static rds_RemoteConnection ReadBack(const rds_RemoteConnection& connection)
    {
        const cls_ReadStream stream(Written(connection));
        return rds_RemoteConnection(stream.Visitor(0));
    }
};

void ExpectSameFields(const rds_RemoteConnection& one, const rds_RemoteConnection& other)
{
    EXPECT_EQ(one.ServerPortNumber(), other.ServerPortNumber());
    EXPECT_EQ(one.ConnectPortNumber(), other.ConnectPortNumber());
    EXPECT_EQ(one.HostName(), other.HostName());
    EXPECT_EQ(one.Directory(), other.Directory());
    EXPECT_EQ(one.Name(), other.Name());
    EXPECT_EQ(one.RemoteMarlekDriverName(), other.RemoteMarlekDriverName());
    EXPECT_EQ(one.TimeOut(), other.TimeOut());
    EXPECT_EQ(one.StartRemoteServer(), other.StartRemoteServer());
    EXPECT_EQ(one.RemoteConnectionStatus(), other.RemoteConnectionStatus());
    EXPECT_EQ(one.RemoteLoginMechanism(), other.RemoteLoginMechanism());
    EXPECT_EQ(one.SshExecPath(), other.SshExecPath());
    EXPECT_STREQ(one.QlnsrvdKey(), other.QlnsrvdKey());
}
} // namespace

TEST_F(ARemoteConnection, TheShortConstructorKnowsNoPortsAndGivesADay)
{
    const rds_RemoteConnection connection = Short();
    EXPECT_EQ(connection.Name().View(), "box1");
    EXPECT_EQ(connection.HostName().View(), "hpc7");
    EXPECT_EQ(connection.Directory().View(), "/scratch/run");
    EXPECT_EQ(connection.RemoteMarlekDriverName().View(), "rundriver");
    EXPECT_EQ(connection.RemoteLoginMechanism(), Login::RSH);
    EXPECT_EQ(connection.SshExecPath().View(), "/opt/ssh");
    EXPECT_TRUE(connection.StartRemoteServer());
    EXPECT_EQ(connection.ServerPortNumber(), 0);
    EXPECT_EQ(connection.ConnectPortNumber(), 0);
    EXPECT_EQ(connection.TimeOut(), 86400);
    EXPECT_EQ(connection.RemoteConnectionStatus(), Status::DISCONNECTED);
    EXPECT_TRUE(connection.Transient());
    EXPECT_STREQ(connection.QlnsrvdKey(), "");
}

TEST_F(ARemoteConnection, TheLongConstructorTakesTimeOutServerPortAndConnectPortInThisOrder)
{
    const rds_RemoteConnection connection = Long();
    EXPECT_EQ(connection.TimeOut(), 60);
    EXPECT_EQ(connection.ServerPortNumber(), 40000);
    EXPECT_EQ(connection.ConnectPortNumber(), 40001);
    EXPECT_EQ(connection.RemoteLoginMechanism(), Login::SSH);
    EXPECT_FALSE(connection.StartRemoteServer());
    EXPECT_EQ(connection.RemoteConnectionStatus(), Status::DISCONNECTED);
    EXPECT_TRUE(connection.Transient());
    EXPECT_STREQ(connection.QlnsrvdKey(), "");
}

TEST_F(ARemoteConnection, AFreshOneIsWrittenWithItsDefaults)
{
    const cls_ReadStream stream(Written(Short()));
    const cls_ReadVisitor reader = stream.Visitor(0);
    EXPECT_EQ(reader.ReadInt(rds_ServerPortNumberField, -1), 0);
    EXPECT_EQ(reader.ReadInt(rds_ConnectPortNumberField, -1), 0);
    EXPECT_EQ(reader.ReadInt(rds_TimeOutField, -1), 86400);
    EXPECT_EQ(reader.ReadString(rds_RemoteConnectionStatusField, "").View(), "DISCONNECTED");
    EXPECT_TRUE(reader.ReadBool(rds_TransientField, false));
    EXPECT_EQ(reader.ReadString(rds_RemoteLoginMechanismField, "").View(), "RSH");
    EXPECT_EQ(reader.ReadString(rds_qlnsrvdKeyField, "absent").View(), "");
    EXPECT_EQ(reader.VersionNumber(), 800);
}

TEST_F(ARemoteConnection, ItsBytesInAStreamAreTheseThirteenAttributesInTheirOrder)
{
    rds_RemoteConnection connection("n", "h", "d", "m", Login::SSH, "s", 2, 3, 4, true);
    connection.SetqlnsrvdKey("k");
    using namespace std::string_literals;
    const std::string body = "\x01\x00\x81\x80\xb4\x1a\xa0\x06\x14rds_RemoteConnection"
                             "\x03\x12m_ServerPortNumber\x01\x06"
                             "\x04\x13m_ConnectPortNumber\x01\x08"
                             "\x05\x0am_HostName\x03\x01h"
                             "\x06\x0bm_Directory\x03\x01"
                             "d"
                             "\x07\x06m_Name\x03\x01n"
                             "\x08\x18m_RemoteMarlekDriverName\x03\x01m"
                             "\x09\x09m_TimeOut\x01\x04"
                             "\x0a\x13m_StartRemoteServer\x02\x01"
                             "\x0b\x18m_RemoteConnectionStatus\x03\x0c"
                             "DISCONNECTED"
                             "\x0c\x0bm_Transient\x02\x01"
                             "\x0d\x16m_RemoteLoginMechanism\x03\x03SSH"
                             "\x0e\x0dm_sshExecPath\x03\x01s"
                             "\x0f\x0aqlnsrvdKey\x03\x01k"
                             "\x00"s;
    EXPECT_EQ(Written(connection).View(), cls_WrapBody(body));
}

TEST_F(ARemoteConnection, ACopyIsTransientWhateverItsSourceIs)
{
    const rds_RemoteConnection source =
        StoredRecord{.status = "CONNECTED", .transient = false, .key = "secret"}.Read();
    ASSERT_FALSE(source.Transient());
    const rds_RemoteConnection copy(source);
    EXPECT_TRUE(copy.Transient());
    EXPECT_EQ(copy.RemoteConnectionStatus(), Status::CONNECTED);
    EXPECT_STREQ(copy.QlnsrvdKey(), "secret");
    const std::unique_ptr<rds_RemoteConnection> heap(source.Copy());
    EXPECT_TRUE(heap->Transient());
    const std::unique_ptr<rds_RemoteConnection> byPolicy(cow_Virtual<rds_RemoteConnection>::Copy(source));
    EXPECT_TRUE(byPolicy->Transient());
}

TEST_F(ARemoteConnection, ACopyHasAllElseOfItsSource)
{
    rds_RemoteConnection source = Long();
    source.SetqlnsrvdKey("abc");
    source.SetConnectionStatus(Status::CONNECTED);
    ExpectSameFields(rds_RemoteConnection(source), source);
}

TEST_F(ARemoteConnection, ACopyIsAStoredObjectOfItsOwn)
{
    const rds_RemoteConnection source = Long();
    cls_WriteStream written;
    source.DBWrite(written.Visitor());
    const rds_RemoteConnection copy(source);
    copy.DBWrite(written.Visitor());
    const cls_ReadStream stream(written.Bytes());
    ASSERT_EQ(stream.Count(), 2);
    EXPECT_NE(stream.Visitor(0).GetUid(), stream.Visitor(1).GetUid());
}

TEST_F(ARemoteConnection, WritingItTwiceToOneVisitorWritesItsAttributesOnce)
{
    const rds_RemoteConnection connection = Long();
    cls_WriteStream written;
    const cls_WriteVisitor visitor = written.Visitor();
    connection.DBWrite(visitor);
    connection.DBWrite(visitor);
    const cow_String bytes = written.Bytes();
    const int first = bytes.Find("hpc8");
    EXPECT_LT(first, bytes.Length());
    EXPECT_EQ(bytes.Find("hpc8", first + 1), bytes.Length());
    const cls_ReadStream stream(bytes);
    ASSERT_EQ(stream.Count(), 2);
    EXPECT_EQ(stream.Visitor(0).GetUid(), stream.Visitor(1).GetUid());
}

TEST_F(ARemoteConnection, WhatWasWrittenIsReadBack)
{
    rds_RemoteConnection connection = Long();
    connection.SetqlnsrvdKey("abc");
    connection.SetConnectionStatus(Status::CONNECTED);
    ExpectSameFields(ReadBack(connection), connection);
    EXPECT_TRUE(ReadBack(connection).Transient());
}

TEST_F(ARemoteConnection, AStoredStatusAndTransientMarkComeBackAsTheyWere)
{
    const rds_RemoteConnection connection = StoredRecord{.status = "CONNECTED", .transient = false}.Read();
    EXPECT_EQ(connection.RemoteConnectionStatus(), Status::CONNECTED);
    EXPECT_FALSE(connection.Transient());
    EXPECT_TRUE((StoredRecord{.transient = true}.Read().Transient()));
}

TEST_F(ARemoteConnection, AStreamWithoutAttributesGivesTheDefaults)
{
    cls_WriteStream written;
    const cls_WriteVisitor visitor = written.Visitor();
    visitor.StartWrite(rds_RemoteConnection::TypeId(), cls_Uid());
    visitor.WriteString(rds_RemoteConnectionStatusField, "DISCONNECTED");
    visitor.WriteString(rds_RemoteLoginMechanismField, "RSH");
    const cls_ReadStream stream(written.Bytes());
    const rds_RemoteConnection connection(stream.Visitor(0));
    EXPECT_EQ(connection.ServerPortNumber(), 0);
    EXPECT_EQ(connection.ConnectPortNumber(), 0);
    EXPECT_EQ(connection.TimeOut(), 0);
    EXPECT_FALSE(connection.StartRemoteServer());
    EXPECT_FALSE(connection.Transient());
    EXPECT_EQ(connection.HostName().View(), "0");
    EXPECT_EQ(connection.Directory().View(), "0");
    EXPECT_EQ(connection.Name().View(), "0");
    EXPECT_EQ(connection.RemoteMarlekDriverName().View(), "0");
    EXPECT_EQ(connection.SshExecPath().View(), "0");
    EXPECT_STREQ(connection.QlnsrvdKey(), "0");
}

TEST_F(ARemoteConnection, AStreamWithoutAnEnumerationIsRefusedWithTheDefaultText)
{
    EXPECT_EQ(Thrown<omu_ValueErrorException>([] { StoredRecord{.status = nullptr}.Read(); }),
              "omu_PrimEnum(const cow_String&) - str not allowed: 0  Permissible: CONNECTED, DISCONNECTED");
    EXPECT_EQ(Thrown<omu_ValueErrorException>([] { StoredRecord{.login = nullptr}.Read(); }),
              "omu_PrimEnum(const cow_String&) - str not allowed: 0  Permissible: RSH, SSH");
}

TEST_F(ARemoteConnection, AStoredNameInLowerCaseIsRefused)
{
    EXPECT_EQ(
        Thrown<omu_ValueErrorException>([] { StoredRecord{.status = "connected"}.Read(); }),
        "omu_PrimEnum(const cow_String&) - str not allowed: connected  Permissible: CONNECTED, DISCONNECTED");
    EXPECT_EQ(Thrown<omu_ValueErrorException>([] { StoredRecord{.login = "ssh"}.Read(); }),
              "omu_PrimEnum(const cow_String&) - str not allowed: ssh  Permissible: RSH, SSH");
}

TEST_F(ARemoteConnection, AValueThatIsNoLoginMechanismIsNotWritten)
{
    const rds_RemoteConnection connection("n", "h", "", "", static_cast<Login>(7), "", true);
    EXPECT_EQ(Thrown<omu_ValueErrorException>([&] { Written(connection); }),
              "omu_PrimEnum(Enum) - Enum value not allowed: 7  Permissible: RSH, SSH");
}

TEST(rds_RemoteConnectionEnums, TheTablesHaveTheirNamesAndValues)
{
    EXPECT_EQ(StatusName(Status::DISCONNECTED).AsString().View(), "DISCONNECTED");
    EXPECT_EQ(StatusName(Status::CONNECTED).AsString().View(), "CONNECTED");
    EXPECT_EQ(LoginName(Login::RSH).AsString().View(), "RSH");
    EXPECT_EQ(LoginName(Login::SSH).AsString().View(), "SSH");
    EXPECT_EQ(StatusName(cow_String("DISCONNECTED")).Value(), 0);
    EXPECT_EQ(StatusName(cow_String("CONNECTED")).Value(), 1);
    EXPECT_EQ(LoginName(cow_String("RSH")).Value(), 0);
    EXPECT_EQ(LoginName(cow_String("SSH")).Value(), 1);
    EXPECT_EQ(StatusName::table[2].name, nullptr);
    EXPECT_EQ(LoginName::table[2].name, nullptr);
    EXPECT_EQ(StatusName(Status::CONNECTED).PermissibleValues().Count(), 2);
    EXPECT_EQ(LoginName(Login::SSH).PermissibleValues().ConstGet("SSH"), 1U);
    EXPECT_EQ(Thrown<omu_ValueErrorException>([] { LoginName{StatusName(Status::CONNECTED)}; }),
              "omu_PrimEnum(const omu_PrimEnumBase&) - str not allowed: CONNECTED");
}

TEST_F(ARemoteConnection, KeysOfAllLengthsThatFitAreKeptWhole)
{
    rds_RemoteConnection connection = Short();
    for (const std::size_t length : {255, 8, 7, 0})
    {
        const std::string key(length, 'k');
        connection.SetqlnsrvdKey(cow_String(std::string_view(key)));
        EXPECT_EQ(connection.QlnsrvdKey(), key);
        EXPECT_EQ(ReadBack(connection).QlnsrvdKey(), key);
        EXPECT_EQ(rds_RemoteConnection(connection).QlnsrvdKey(), key);
    }
}

TEST_F(ARemoteConnection, AKeyThatIsTooLongIsRefusedAndTheFormerStays)
{
    rds_RemoteConnection connection = Short();
    connection.SetqlnsrvdKey("former");
    for (const std::size_t length : {256, 300})
        EXPECT_EQ(Thrown<nex_TextException>(
                      [&]
                      { connection.SetqlnsrvdKey(cow_String(std::string_view(std::string(length, 'k')))); }),
                  "*** Error: The key of a connection can't have more than 255 characters.");
    EXPECT_STREQ(connection.QlnsrvdKey(), "former");
}

TEST_F(ARemoteConnection, AShorterKeyLeavesNothingOfTheFormer)
{
    rds_RemoteConnection connection = Short();
    connection.SetqlnsrvdKey("a long key");
    connection.SetqlnsrvdKey("key");
    EXPECT_EQ(std::string_view(connection.QlnsrvdKey(), 256),
              std::string_view(std::string("key").append(253, '\0')));
    const rds_RemoteConnection copy(connection);
    EXPECT_EQ(std::memcmp(copy.QlnsrvdKey(), connection.QlnsrvdKey(), 256), 0);
}

TEST_F(ARemoteConnection, AStoredKeyIsCutToItsRoom)
{
    for (const std::size_t length : {255, 256, 300, 100000})
    {
        const std::string key(length, 'k');
        const rds_RemoteConnection connection = StoredRecord{.key = cow_String(std::string_view(key))}.Read();
        EXPECT_EQ(connection.QlnsrvdKey(), std::string(255, 'k')) << length;
    }
    const rds_RemoteConnection connection = StoredRecord{.key = "abc"}.Read();
    EXPECT_EQ(std::string_view(connection.QlnsrvdKey(), 256),
              std::string_view(std::string("abc").append(253, '\0')));
}

TEST_F(ARemoteConnection, ItsTypeIsRowOneOfItsLibrary)
{
    EXPECT_EQ(rds_RemoteConnection::TypeId(), 55377921);
    EXPECT_EQ(rds_RemoteConnection::TypeId(), 845 * 65536 + 1);
    EXPECT_EQ(Short().DynTypeId(), 55377921);
}

TEST_F(ARemoteConnection, ItsMetadataMakesOneAndReleasesHandles)
{
    const rds_RemoteConnection connection = Long();
    const cls_ReadStream stream(Written(connection));
    const cls_ClassMetadata* metadata = cls_ClassRegistrar::FindClassMD(stream.Visitor(0).TypeId());
    ASSERT_NE(metadata, nullptr);
    auto* made = static_cast<rds_RemoteConnection*>(metadata->Ctor(stream.Visitor(0)));
    ExpectSameFields(*made, connection);
    using Handle = cls_TypeAdapter<rds_RemoteConnection>::Handle;
    auto handle = std::make_unique<Handle>(made);
    const Handle other(*handle);
    metadata->DeleteCow(handle.release());
    EXPECT_EQ(other.Count(), 1);
}

TEST_F(ARemoteConnection, ChangingItReportsNothing)
{
    rds_RemoteConnection connection = Short();
    connection.SetConnectionStatus(Status::CONNECTED);
    connection.SetqlnsrvdKey("k");
    EXPECT_EQ(Reports(), "");
}

TEST(rds_RemoteConnectionNames, AreTheWordsOfTheScriptingLayer)
{
    using Connection = rds_RemoteConnection;
    EXPECT_STREQ(Connection::remoteConnectionsCmd().CString(), "networkDatabaseConnectors");
    EXPECT_STREQ(Connection::constructorCmd().CString(), "NetworkDatabaseConnector");
    EXPECT_STREQ(Connection::SetValuesMth().CString(), "setValues");
    EXPECT_STREQ(Connection::SetqlnsrvdKeyMth().CString(), "_setqlnsrvdKey");
    EXPECT_STREQ(Connection::SetConnectionStatusMth().CString(), "_setConnectionStatus");
    EXPECT_STREQ(Connection::StartRemoteFileServerMth().CString(), "start");
    EXPECT_STREQ(Connection::StopRemoteFileServerMth().CString(), "stop");
    EXPECT_STREQ(Connection::GetNameCmd().CString(), "name");
    EXPECT_STREQ(Connection::GetHostNameCmd().CString(), "hostName");
    EXPECT_STREQ(Connection::GetDirectoryNameCmd().CString(), "directory");
    EXPECT_STREQ(Connection::GetServerTimeoutCmd().CString(), "serverTimeout");
    EXPECT_STREQ(Connection::GetServerPortCmd().CString(), "serverPort");
    EXPECT_STREQ(Connection::GetConnectionPortCmd().CString(), "connectionPort");
    EXPECT_STREQ(Connection::GetConnectionStatusCmd().CString(), "connected");
    EXPECT_STREQ(Connection::GetStartServerCmd().CString(), "allowAutomaticStartup");
    EXPECT_STREQ(Connection::GetRemoteMarlekDriverNameCmd().CString(), "remoteMarlekDriverName");
    EXPECT_STREQ(Connection::GetRemoteLoginMechanismCmd().CString(), "remoteLoginMechanism");
    EXPECT_STREQ(Connection::GetsshExecPathCmd().CString(), "sshPath");
    EXPECT_STREQ(Connection::GetqlnsrvdKeyCmd().CString(), "qlnsrvdKey");
    EXPECT_EQ(cow_String(Connection::GetNameCmd()).View(), "name");
    EXPECT_TRUE(Connection::GetNameCmd() == omn_FixedString("name"));
}

TEST_F(ARemoteConnection, AStoredRecordCutOrChangedAnywhereIsRefused)
{
    const auto read = [](const cow_String& bytes)
    {
        const cls_ReadStream stream(bytes);
        const cls_ReadVisitor reader = stream.Visitor(0);
        reader.CheckType(rds_RemoteConnection::TypeId());
        const rds_RemoteConnection connection(reader);
    };
    rds_RemoteConnection connection = Long();
    connection.SetqlnsrvdKey("abc");
    const cow_String whole = Written(connection);
    ExpectEveryCutIsRefused(whole, read);
    ExpectEveryChangedByteIsRefused(whole, read);
    ExpectEveryShortBodyIsRefused(whole, read);
    EXPECT_GT(CountRefusedChanges(whole, read), 0);
}
