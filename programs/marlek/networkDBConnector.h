#pragma once

#include "Words.h"

namespace marlek
{
/// Starts a qlnsrvd on this host and reports on standard output, a line each: the port, where it was assigned; the
/// length of the key; "qlnsrvd-key:" and the key. Without -automaticServer the key is a password that is read from
/// standard input, and is not reported.
/// Throws: farend::Failure; nothing of ours runs then.
void RunNetworkDBConnector(farend::Words words);
} // namespace marlek
