// Ours beside a peer in one benchmark. Timed apart, two rows of a few
// microseconds a pass swing by a third between runs on a shared machine:
// another process or a change of clock falls on one row and not the other.
// Here the two run pass by pass in turn on the same items (the order swapped
// every round), so whatever slows one pass slows its neighbour too, and each
// side's time is the median of its passes, which a pass cut short by the
// scheduler does not move.
//
// The row's time is ours (manual time); the counter "peer/ours" is the
// peer's median over ours: above 1, ours is faster.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace qelbench
{

inline double Median(std::vector<double>& values)
{
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

// One pass: a function of its own, as a caller's loop would be, so that the
// compiler inlines and hoists in it as it would there, whatever the size of
// the benchmark around it; and on a copy of the pass held in a local, where
// the compiler sees that no store of an answer reaches what the pass holds
// (a volume reached through a reference would be read again after every
// store). Passes capture what they test by value.
template <class Pass>
__attribute__((noinline)) void RunPass(const Pass& shared)
{
    const Pass pass = shared;
    pass();
}

// ours() and peer() each make one pass over the items.
template <class Ours, class Peer>
void RunPair(benchmark::State& state, int items, Ours ours, Peer peer)
{
    std::vector<double> seconds[2];
    bool oursFirst = true;
    for (auto _ : state)
    {
        double pass[2];
        for (int k = 0; k < 2; ++k)
        {
            const int side = oursFirst == (k == 0) ? 0 : 1;
            const auto start = std::chrono::steady_clock::now();
            if (side == 0)
                RunPass(ours);
            else
                RunPass(peer);
            pass[side] =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        }
        oursFirst = !oursFirst;
        seconds[0].push_back(pass[0]);
        seconds[1].push_back(pass[1]);
        state.SetIterationTime(pass[0]);
    }
    if (!seconds[0].empty())
        state.counters["peer/ours"] = Median(seconds[1]) / Median(seconds[0]);
    state.SetItemsProcessed(state.iterations() * items);
}

} // namespace qelbench

// For the loops that passes call: inlined into each pass, whether one
// benchmark or several share them.
#define QEL_BENCH_INLINE inline __attribute__((always_inline))

// Registers a pair: its time is ours alone, as RunPair sets it.
#define QEL_BENCHMARK_PAIR(function) BENCHMARK(function)->UseManualTime()
