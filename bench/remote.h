// Files on another host: what our readers do through relay, daemon and assistant, beside what ssh does.
#pragma once

#include "Contender.h"
#include "peers.h"

namespace bench
{

std::unique_ptr<Contender> MakeRemote(Kind kind, const Setting& setting);
/// The bare figures beside it.
std::unique_ptr<Contender> MakeRemoteBare(Kind kind, const Setting& setting);
/// `cat` over ssh, and single reads over sftp.
Peer SshPeer();

} // namespace bench
