#pragma once

// Clips for the repair tests and benchmark, made with the ffmpeg command-line tool, damaged
// the ways memory cards fail.
#include "MediaKit/repair/Movie.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace RepairClips {

bool haveFfmpeg();
/// Runs a shell command quietly; true when it succeeds.
bool run(const std::string &command);

struct Profile {
    std::string name;      ///< "h264-aac"
    std::string extension; ///< ".mp4", ".mov"
    std::string codecArgs; ///< ffmpeg options for the encoders
    bool telemetry = false; ///< add a GoPro-style KLV telemetry track with our own writer
};
std::vector<Profile> profiles();

/// Writes `folder/NAME.EXT` (`seconds` long, pictures of the given lavfi source) and the
/// reference `folder/NAME-reference.EXT` (other pictures and sound, same settings).
/// Returns the clip's path.
std::string make(const Profile &profile, const std::string &folder, double seconds = 2.0,
                 const std::string &suffix = "", const std::string &size = "160x120",
                 const std::string &extraArgs = "");

enum class Damage { moovMissing, cutInMdat, zeroedRegion };
std::vector<Damage> damages();
std::string name(Damage damage);
/// Copies `clip` to `damaged`, damaged; returns the byte ranges lost ([from, to)).
std::vector<std::pair<std::uint64_t, std::uint64_t>> damage(const std::string &clip, const std::string &damaged,
                                                           Damage kind);

/// Splits `clip` the way a camera does, into `count` parts that each start with a sync
/// picture and hold every track (each with its own timecode sample); returns their paths.
std::vector<std::string> split(const std::string &clip, int count);

std::vector<std::uint8_t> readFile(const std::string &path);
void writeFile(const std::string &path, const std::vector<std::uint8_t> &bytes);
std::string temporaryFolder();

} // namespace RepairClips
