#include "rds_RemoteConnection.h"

#include "atr_Translate.h"
#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "nex_Exception.h"
#include "rds_StoredClasses.h"

#include <algorithm>
#include <cstring>

using StatusName = omu_PrimEnum<rds_RemoteConnectionStatusEnm, 1>;
using LoginName = omu_PrimEnum<rds_RemoteLoginMechanismEnm, 1>;

template <>
const omu_PrimEnumEntry StatusName::table[] = {{"DISCONNECTED", 0}, {"CONNECTED", 1}, {nullptr, 0}};
template <> const omu_PrimEnumEntry LoginName::table[] = {{"RSH", 0}, {"SSH", 1}, {nullptr, 0}};

rds_RemoteConnection::rds_RemoteConnection(const cow_String& name, const cow_String& hostName,
                                           const cow_String& directory, const cow_String& driverName,
                                           rds_RemoteLoginMechanismEnm loginMechanism,
                                           const cow_String& sshExecPath, bool startRemoteServer)
    : rds_RemoteConnection(name, hostName, directory, driverName, loginMechanism, sshExecPath, kUsualTimeOut,
                           0, 0, startRemoteServer)
{
}

rds_RemoteConnection::rds_RemoteConnection(const cow_String& name, const cow_String& hostName,
                                           const cow_String& directory, const cow_String& driverName,
                                           rds_RemoteLoginMechanismEnm loginMechanism,
                                           const cow_String& sshExecPath, int timeOut, int serverPort,
                                           int connectPort, bool startRemoteServer)
    : m_ServerPortNumber(serverPort),
      m_ConnectPortNumber(connectPort),
      m_HostName(hostName),
      m_Directory(directory),
      m_Name(name),
      m_RemoteMarlekDriverName(driverName),
      m_TimeOut(timeOut),
      m_StartRemoteServer(startRemoteServer),
      m_RemoteConnectionStatus(rds_RemoteConnectionStatusEnm::DISCONNECTED),
      m_Transient(true),
      m_RemoteLoginMechanism(loginMechanism),
      m_sshExecPath(sshExecPath)
{
    StoreKey("");
}

// kept: a copy is transient, whatever its source is. Test: ACopyIsTransientWhateverItsSourceIs.
rds_RemoteConnection::rds_RemoteConnection(const rds_RemoteConnection& source)
    : m_ServerPortNumber(source.m_ServerPortNumber),
      m_ConnectPortNumber(source.m_ConnectPortNumber),
      m_HostName(source.m_HostName),
      m_Directory(source.m_Directory),
      m_Name(source.m_Name),
      m_RemoteMarlekDriverName(source.m_RemoteMarlekDriverName),
      m_TimeOut(source.m_TimeOut),
      m_StartRemoteServer(source.m_StartRemoteServer),
      m_RemoteConnectionStatus(source.m_RemoteConnectionStatus),
      m_Transient(true),
      m_RemoteLoginMechanism(source.m_RemoteLoginMechanism),
      m_sshExecPath(source.m_sshExecPath)
{
    StoreKey(source.qlnsrvdKey);
}

// kept: a text that the stream lacks is the digit 0, which an enumeration then refuses.
// Test: AStreamWithoutAttributesGivesTheDefaults.
static cow_String ReadText(const cls_ReadVisitor& reader, const cls_FieldHandle& field)
{
    return reader.ReadString(field, cow_String(0));
}

rds_RemoteConnection::rds_RemoteConnection(const cls_ReadVisitor& reader)
    : m_ServerPortNumber(reader.ReadInt(rds_ServerPortNumberField, 0)),
      m_ConnectPortNumber(reader.ReadInt(rds_ConnectPortNumberField, 0)),
      m_HostName(ReadText(reader, rds_HostNameField)),
      m_Directory(ReadText(reader, rds_DirectoryField)),
      m_Name(ReadText(reader, rds_NameField)),
      m_RemoteMarlekDriverName(ReadText(reader, rds_RemoteMarlekDriverNameField)),
      m_TimeOut(reader.ReadInt(rds_TimeOutField, 0)),
      m_StartRemoteServer(reader.ReadBool(rds_StartRemoteServerField, false)),
      m_RemoteConnectionStatus(StatusName(ReadText(reader, rds_RemoteConnectionStatusField)).AsEnum()),
      m_Transient(reader.ReadBool(rds_TransientField, false)),
      m_RemoteLoginMechanism(LoginName(ReadText(reader, rds_RemoteLoginMechanismField)).AsEnum()),
      m_sshExecPath(ReadText(reader, rds_sshExecPathField))
{
    StoreKey(ReadText(reader, rds_qlnsrvdKeyField).CString());
}

rds_RemoteConnection::~rds_RemoteConnection() = default;

int rds_RemoteConnection::TypeId() noexcept { return typ_TypeId(rds_LibraryNumber, rds_RowRemoteConnection); }
int rds_RemoteConnection::DynTypeId() const { return TypeId(); }
rds_RemoteConnection* rds_RemoteConnection::Copy() const { return new rds_RemoteConnection(*this); }

void rds_RemoteConnection::DBWrite(const cls_WriteVisitor& visitor) const
{
    if (!visitor.StartWrite(TypeId(), m_Uid)) return;
    visitor.WriteInt(rds_ServerPortNumberField, m_ServerPortNumber);
    visitor.WriteInt(rds_ConnectPortNumberField, m_ConnectPortNumber);
    visitor.WriteString(rds_HostNameField, m_HostName);
    visitor.WriteString(rds_DirectoryField, m_Directory);
    visitor.WriteString(rds_NameField, m_Name);
    visitor.WriteString(rds_RemoteMarlekDriverNameField, m_RemoteMarlekDriverName);
    visitor.WriteInt(rds_TimeOutField, m_TimeOut);
    visitor.WriteBool(rds_StartRemoteServerField, m_StartRemoteServer);
    visitor.WriteString(rds_RemoteConnectionStatusField, StatusName(m_RemoteConnectionStatus).AsString());
    visitor.WriteBool(rds_TransientField, m_Transient);
    visitor.WriteString(rds_RemoteLoginMechanismField, LoginName(m_RemoteLoginMechanism).AsString());
    visitor.WriteString(rds_sshExecPathField, m_sshExecPath);
    visitor.WriteString(rds_qlnsrvdKeyField, cow_String(qlnsrvdKey));
}

void rds_RemoteConnection::StoreKey(const char* key) noexcept
{
    const std::size_t length = std::min(std::strlen(key), sizeof qlnsrvdKey - 1);
    std::memset(qlnsrvdKey, 0, sizeof qlnsrvdKey);
    std::memcpy(qlnsrvdKey, key, length);
}

void rds_RemoteConnection::SetqlnsrvdKey(const cow_String& key)
{
    if (key.Length() > kMostKeyBytes)
        nex_ThrowText(atr_Message("*** Error: The key of a connection can't have more than %d characters.",
                                  kMostKeyBytes),
                      "rds_RemoteConnection");
    StoreKey(key.CString());
}
