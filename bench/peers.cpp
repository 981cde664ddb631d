#include "peers.h"

namespace bench
{

std::vector<Peer> AllPeers()
{
    std::vector<Peer> peers{RfmPeer(), BarePeer()};
#ifdef RFM_BENCH_SQLITE
    peers.push_back(SqlitePeer());
#else
    peers.push_back({.name = "SQLite", .note = "not found when this was configured, skipped"});
#endif
#ifdef RFM_BENCH_LMDB
    peers.push_back(LmdbPeer());
#else
    peers.push_back({.name = "LMDB", .note = "not found when this was configured, skipped"});
#endif
#ifdef RFM_BENCH_HDF5
    peers.push_back(Hdf5Peer());
#else
    peers.push_back({.name = "HDF5", .note = "not found when this was configured, skipped"});
#endif
#ifdef RFM_BENCH_HTSLIB
    peers.push_back(BgzfPeer());
#else
    peers.push_back({.name = "BGZF", .note = "not found when this was configured, skipped"});
#endif
    peers.push_back(DeflatePeer());
    return peers;
}

} // namespace bench
