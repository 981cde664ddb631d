#include "peers.h"

#ifdef RFM_BENCH_SSHD
#include "remote.h"
#endif

namespace bench
{

namespace
{

[[maybe_unused]] Peer Missing(const char* name)
{
    return {.name = name, .note = "not found when this was configured, skipped"};
}

} // namespace

std::vector<Peer> AllPeers()
{
    std::vector<Peer> peers{RfmPeer(), BarePeer()};
#ifdef RFM_BENCH_SQLITE
    peers.push_back(SqlitePeer());
#else
    peers.push_back(Missing("SQLite"));
#endif
#ifdef RFM_BENCH_LMDB
    peers.push_back(LmdbPeer());
#else
    peers.push_back(Missing("LMDB"));
#endif
#ifdef RFM_BENCH_HDF5
    peers.push_back(Hdf5Peer());
#else
    peers.push_back(Missing("HDF5"));
#endif
#ifdef RFM_BENCH_HTSLIB
    peers.push_back(BgzfPeer());
#else
    peers.push_back(Missing("BGZF"));
#endif
    peers.push_back(DeflatePeer());
#ifdef RFM_BENCH_SSHD
    peers.push_back(SshPeer());
#else
    peers.push_back(Missing("ssh"));
#endif
    return peers;
}

} // namespace bench
