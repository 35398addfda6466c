#pragma once

/// How much of the processor a worker thread takes while the user waits for something.
/// On Linux Qt's thread priorities other than idle change nothing for ordinary threads,
/// so work done ahead of the user runs "nice": the picture the user just asked for (the
/// shown photo, the 100 % decode) then gets a core of its own instead of a third of two.
namespace CpuShare {

/// Work prepared ahead of the user (neighbours' pictures, the filmstrip's thumbnails).
constexpr int aheadNiceness = 5;
/// Work nobody waits for (the checks, prefetching).
constexpr int backgroundNiceness = 10;

/// Lowers the calling thread's share to `niceness` (per thread). Never raises it: an
/// ordinary process may not take a share back, so pools that run foreground work never
/// call this. Returns false when the system refused.
bool standBack(int niceness);

} // namespace CpuShare
