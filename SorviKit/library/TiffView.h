#pragma once

#include <QString>

#include <cstddef>
#include <cstdint>

/// A TIFF-structured file (DNG, CR2, NEF, …) mapped copy-on-write into memory, with every
/// value in its IFD chain that is larger than `hugeValueBytes` made empty in our private
/// copy (the file itself is never written). Metadata readers copy each tag value they
/// meet; a DNG that embeds the camera's original RAW (13 MB or more in one tag) would
/// otherwise be copied whole just to read its dates. Untouched pages are never read.
class TiffView {
public:
    static constexpr std::uint32_t hugeValueBytes = 1024 * 1024;

    explicit TiffView(const QString &path);
    ~TiffView();
    TiffView(const TiffView &) = delete;
    TiffView &operator=(const TiffView &) = delete;

    /// True when the file is mapped and starts with a TIFF header.
    bool isValid() const { return m_bytes != nullptr; }
    const std::uint8_t *data() const { return m_bytes; }
    std::size_t size() const { return m_size; }
    /// How many values were emptied.
    int emptiedValues() const { return m_emptied; }

private:
    void emptyHugeValues();
    std::uint32_t read32(std::size_t offset) const;
    std::uint16_t read16(std::size_t offset) const;

    std::uint8_t *m_bytes = nullptr;
    std::size_t m_size = 0;
    bool m_bigEndian = false;
    int m_emptied = 0;
};
