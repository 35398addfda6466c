// Damages clips of each profile the ways cards fail, repairs them, and prints per profile
// and damage the share of samples recovered bit-exact on every track, and the repair speed
// against reading the damaged file once and against copying it with a flush to the disk,
// the least any repair that writes a new file costs (the file's cached pages are dropped
// first where the system allows; best of three). Pictures carry noise so that they are
// coded at a camera-like rate. The clips are made under $TMPDIR (default /tmp): point it at
// an XFS or Btrfs folder to measure the repair where the copy shares blocks.
#include "MediaKit/repair/ClipCompare.h"
#include "MediaKit/repair/ClipRepair.h"
#include "RepairClips.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

using namespace RepairClips;

namespace {

// Drops the file's pages from the cache so that every run reads it from the disk.
void evict(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDONLY);
    fdatasync(fd);
    posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    close(fd);
}

template <typename Work>
double bestSeconds(const std::vector<std::string> &files, Work work)
{
    double best = 1e9;
    for (int round = 0; round < 3; ++round) {
        for (const std::string &file : files)
            evict(file);
        const auto start = std::chrono::steady_clock::now();
        work();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

// Reads the file once, in 1 MiB blocks: the peer every repair must beat by half.
void plainRead(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDONLY);
    std::vector<char> block(std::size_t{1} << 20);
    volatile char sink = 0;
    for (ssize_t n; (n = read(fd, block.data(), block.size())) > 0;)
        sink = sink + block[std::size_t(n) - 1];
    close(fd);
}

// Copies the file to a new one beside it and flushes it to the disk: what writing any
// repaired file costs at the least.
void plainCopy(const std::string &from, const std::string &to)
{
    const int in = open(from.c_str(), O_RDONLY);
    const int out = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<char> block(std::size_t{1} << 20);
    for (ssize_t n; (n = read(in, block.data(), block.size())) > 0;)
        if (write(out, block.data(), std::size_t(n)) != n)
            break;
    fsync(out);
    close(out);
    close(in);
}

} // namespace

int main(int argc, char **argv)
{
    if (!haveFfmpeg()) {
        std::puts("bench_repair: ffmpeg is not installed; nothing measured");
        return 0;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // each line as soon as it is measured
    const double seconds = argc > 1 ? std::atof(argv[1]) : 10.0;
    const std::string folder = temporaryFolder();
    std::printf("Clips of %.0f s at 1280x720, 25 frames a second, with sensor-like noise (CRF 14); references of the same settings.\n", seconds);
    std::printf("%-14s %-14s %7s %12s %12s %6s %12s %6s  %s\n", "profile", "damage", "size", "repair", "plain read",
                "ratio", "copy+fsync", "ratio", "bit-exact per track (recovered/expected)");
    for (const Profile &profile : profiles()) {
        const std::string clip = make(profile, folder, seconds, "", "1280x720", "-vf noise=alls=12:allf=t -crf 14");
        const std::string reference = folder + "/" + profile.name + "-reference" + profile.extension;
        for (Damage kind : damages()) {
            const std::string damaged = folder + "/damaged" + profile.extension;
            const std::string repaired = folder + "/repaired" + profile.extension;
            std::filesystem::remove(damaged);
            const auto lost = damage(clip, damaged, kind);
            const double megabytes = double(std::filesystem::file_size(damaged)) / 1e6;
            const double repair = bestSeconds({damaged, reference}, [&] {
                std::filesystem::remove(repaired);
                ClipRepair::repair(damaged, reference, repaired);
            });
            const double read = bestSeconds({damaged}, [&] { plainRead(damaged); });
            const double copy = bestSeconds({damaged}, [&] { plainCopy(damaged, repaired + ".copy"); });
            std::filesystem::remove(repaired + ".copy");
            std::string shares;
            for (const ClipCompare::TrackMatch &match : ClipCompare::compare(clip, repaired, lost)) {
                char cell[64];
                std::snprintf(cell, sizeof cell, "%s %.1f%% (%zu/%zu) ", match.codec.c_str(), 100 * match.share(),
                              match.recovered, match.expected);
                shares += cell;
            }
            std::printf("%-14s %-14s %4.0f MB %7.0f MB/s %7.0f MB/s %6.2f %7.0f MB/s %6.2f  %s\n", profile.name.c_str(),
                        name(kind).c_str(), megabytes, megabytes / repair, megabytes / read, read / repair,
                        megabytes / copy, copy / repair, shares.c_str());
        }
    }
    std::filesystem::remove_all(folder);
    return 0;
}
