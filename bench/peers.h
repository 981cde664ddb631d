// The peers of a run, ours first.
#pragma once

#include "live.h"

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
Peer BgzfPeer();
Peer DeflatePeer();

/// The bare figure beside a followed writer: the same writer with nobody following.
std::unique_ptr<Contender> MakeRfmUnfollowed(const Setting& setting);

/// The bare figure beside tables in another kind of file: the same work on a plain file.
std::unique_ptr<Contender> MakeRfmPlain(Kind kind, const Setting& setting);

/// Starts our library, which stays up as long as the process.
void StartRfm();

/// A table of ours that is written and followed.
LivePeer RfmLive(const std::string& file);

/// A new HDF5 file with the dataset "array", contiguous.
void WriteHdf5Doubles(const std::string& file, const std::vector<double>& values);

/// Writes the rows to a plain file of ours.
void WriteRfmRows(const std::string& file, int count);

} // namespace bench
