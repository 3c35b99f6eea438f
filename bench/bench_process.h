// What the benchmark programs read of their own process on Linux: elapsed time and the resident
// set, now and at its peak.
#pragma once

#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace bench {

using Clock = std::chrono::steady_clock;

inline double nanoseconds(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::nano>(to - from).count();
}

// Resident bytes of the process, after giving freed heap pages back so that memory released by
// an earlier run does not count as resident (nor get reused unseen).
inline double residentBytes() {
    malloc_trim(0);
    long pages = 0;
    long resident = 0;
    if (std::FILE* statm = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2)
            resident = 0;
        std::fclose(statm);
    }
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// Starts a new peak of the resident set (VmHWM drops to the current resident set).
inline void resetPeak() {
    if (std::FILE* refs = std::fopen("/proc/self/clear_refs", "w")) {
        std::fputs("5", refs);
        std::fclose(refs);
    }
}

// The peak of the resident set since resetPeak(), in bytes (0 where the system does not say).
inline double peakBytes() {
    double kib = 0;
    if (std::FILE* status = std::fopen("/proc/self/status", "r")) {
        char line[256];
        while (std::fgets(line, sizeof line, status))
            if (std::sscanf(line, "VmHWM: %lf kB", &kib) == 1)
                break;
        std::fclose(status);
    }
    return kib * 1024;
}

} // namespace bench
