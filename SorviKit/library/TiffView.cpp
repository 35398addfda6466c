#include "SorviKit/library/TiffView.h"

#include <QFile>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

namespace {

constexpr std::array<std::uint32_t, 13> typeSizes{0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8};
constexpr int maximumIfds = 16; // a loop in the IFD chain must not hang us

} // namespace

TiffView::TiffView(const QString &path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    struct stat info {};
    if (fstat(fd, &info) == 0 && info.st_size >= 16) {
        void *map = mmap(nullptr, std::size_t(info.st_size), PROT_READ | PROT_WRITE, MAP_PRIVATE, fd, 0);
        if (map != MAP_FAILED) {
            m_bytes = static_cast<std::uint8_t *>(map);
            m_size = std::size_t(info.st_size);
        }
    }
    ::close(fd);
    if (!m_bytes)
        return;
    const bool little = m_bytes[0] == 'I' && m_bytes[1] == 'I';
    m_bigEndian = m_bytes[0] == 'M' && m_bytes[1] == 'M';
    if ((!little && !m_bigEndian) || read16(2) != 42) {
        munmap(m_bytes, m_size);
        m_bytes = nullptr;
        return;
    }
    emptyHugeValues();
}

TiffView::~TiffView()
{
    if (m_bytes)
        munmap(m_bytes, m_size);
}

std::uint16_t TiffView::read16(std::size_t offset) const
{
    const std::uint8_t *p = m_bytes + offset;
    return m_bigEndian ? std::uint16_t(p[0] << 8 | p[1]) : std::uint16_t(p[1] << 8 | p[0]);
}

std::uint32_t TiffView::read32(std::size_t offset) const
{
    const std::uint8_t *p = m_bytes + offset;
    return m_bigEndian ? std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 | p[3]
                       : std::uint32_t(p[3]) << 24 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[1]) << 8 | p[0];
}

void TiffView::emptyHugeValues()
{
    std::size_t ifd = read32(4);
    for (int walked = 0; walked < maximumIfds && ifd != 0 && ifd + 2 <= m_size; ++walked) {
        const std::uint16_t entries = read16(ifd);
        const std::size_t end = ifd + 2 + std::size_t(entries) * 12;
        if (end + 4 > m_size)
            return;
        for (std::size_t entry = ifd + 2; entry < end; entry += 12) {
            const std::uint16_t type = read16(entry + 2);
            const std::uint64_t bytes = std::uint64_t(read32(entry + 4)) * (type < typeSizes.size() ? typeSizes[type] : 0);
            if (bytes > hugeValueBytes) {
                // A count of zero makes the reader skip the value; only our private page changes.
                std::fill(m_bytes + entry + 4, m_bytes + entry + 8, std::uint8_t(0));
                ++m_emptied;
            }
        }
        ifd = read32(end);
    }
}
