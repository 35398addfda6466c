#pragma once

#include <cstdint>
#include <string>
#include <thread>

/// Reads part of a file into the system's cache on a thread of its own, in large blocks
/// and front to back, so that a walk over a mapping of the file that touches only a few
/// bytes of each page it passes finds them in memory instead of waiting on the disk one
/// page fault at a time. The bytes read are thrown away; what stays is the cache. A file
/// that cannot be read is simply not warmed. Stops when dropped.
class CacheWarmer {
public:
    CacheWarmer(const std::string &path, std::uint64_t from, std::uint64_t to);
    CacheWarmer(const CacheWarmer &) = delete;
    CacheWarmer &operator=(const CacheWarmer &) = delete;

private:
    std::jthread m_thread;
};
