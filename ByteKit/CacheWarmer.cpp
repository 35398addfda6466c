#include "ByteKit/CacheWarmer.h"

#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace {

// Large enough for the disk to stream, small enough to stay in the processor's cache.
constexpr std::size_t blockBytes = std::size_t{1} << 20;

} // namespace

CacheWarmer::CacheWarmer(const std::string &path, std::uint64_t from, std::uint64_t to)
    : m_thread([path, from, to](std::stop_token stop) {
          const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
          if (fd < 0)
              return;
          std::vector<char> block(blockBytes);
          for (std::uint64_t at = from; at < to && !stop.stop_requested();) {
              const ssize_t count = ::pread(fd, block.data(), std::min<std::uint64_t>(block.size(), to - at), off_t(at));
              if (count <= 0)
                  break;
              at += std::uint64_t(count);
          }
          ::close(fd);
      })
{
}
