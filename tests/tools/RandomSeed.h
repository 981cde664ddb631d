#pragma once

#include <cstdio>
#include <cstdlib>
#include <random>

/// The seed of a random test: fresh each time and printed; RFM_TEST_SEED in the environment replays one.
inline unsigned RandomSeed()
{
    const char* given = std::getenv("RFM_TEST_SEED");
    const unsigned seed =
        given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device{}();
    std::printf("RFM_TEST_SEED=%u\n", seed);
    std::fflush(stdout);
    return seed;
}
