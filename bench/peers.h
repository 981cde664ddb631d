// The peers of a run, ours first.
#pragma once

#include "Contender.h"

#include <string>
#include <vector>

namespace bench
{

struct Peer
{
    std::string name;
    /// Version and the settings that its documentation names for speed; why it is missing when `make` is null.
    std::string note;
    ContenderMaker make = nullptr;
};

std::vector<Peer> AllPeers();

Peer RfmPeer();
Peer BarePeer();
Peer SqlitePeer();
Peer LmdbPeer();
Peer Hdf5Peer();

/// The bare figure beside a followed writer: the same writer with nobody following.
std::unique_ptr<Contender> MakeRfmUnfollowed(const Setting& setting);

} // namespace bench
