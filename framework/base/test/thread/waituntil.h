// A bounded wait for another thread's progress: polls `condition` until it
// holds or ten seconds pass, so that a broken lock fails its test instead of
// hanging the suite.
#pragma once

#include <chrono>
#include <thread>

template <class Condition>
bool WaitUntil(Condition condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return true;
}
