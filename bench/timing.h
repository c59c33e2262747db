// Seconds that something takes.
#pragma once

#include <algorithm>
#include <chrono>
#include <vector>

using Clock = std::chrono::steady_clock;

inline double seconds_between(Clock::time_point begin, Clock::time_point end)
{
    return std::chrono::duration<double>(end - begin).count();
}

template <class Work> double seconds_of(Work work)
{
    const auto begin = Clock::now();
    work();
    return seconds_between(begin, Clock::now());
}

// The median of many goes, fewer when one takes long: a single short one would tell most of what
// the processor's caches held before it.
template <class Work> double median_seconds_of(Work work)
{
    std::vector<double> goes;
    for (double sum = 0; goes.size() < 5 || (sum < 0.02 && goes.size() < 1000);) {
        goes.push_back(seconds_of(work));
        sum += goes.back();
    }
    const auto middle = goes.begin() + std::ssize(goes) / 2;
    std::nth_element(goes.begin(), middle, goes.end());
    return *middle;
}
