#include "TestFiles.h"
#include "SorviKit/library/TiffView.h"

#include <QCryptographicHash>
#include <QTemporaryDir>
#include <QtEndian>
#include <gtest/gtest.h>

namespace {

void appendEntry(QByteArray &tiff, quint16 tag, quint16 type, quint32 count, quint32 value)
{
    char entry[12];
    qToLittleEndian(tag, entry);
    qToLittleEndian(type, entry + 2);
    qToLittleEndian(count, entry + 4);
    qToLittleEndian(value, entry + 8);
    tiff.append(entry, 12);
}

QByteArray fileHash(const QString &path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result() : QByteArray();
}

} // namespace

TEST(TiffViewTest, EmptiesOnlyHugeValuesAndNeverTouchesTheFile)
{
    // Little-endian TIFF, IFD0 at 8 with: Make (small, inline), a 2 MiB undefined blob and
    // a 1 KiB one; the blobs follow the IFD.
    QByteArray tiff("II*\0\x08\0\0\0", 8);
    tiff.append("\x03\0", 2);
    const quint32 blobsAt = 8 + 2 + 3 * 12 + 4;
    appendEntry(tiff, 0x010f, 2, 4, qFromLittleEndian<quint32>("Kes\0"));
    appendEntry(tiff, 0xc68c, 7, 2 * 1024 * 1024, blobsAt);
    appendEntry(tiff, 0xc634, 7, 1024, blobsAt + 2 * 1024 * 1024);
    tiff.append(4, '\0'); // no next IFD
    tiff.append(QByteArray(2 * 1024 * 1024 + 1024, 'x'));

    QTemporaryDir dir;
    const QString path = dir.path() + "/x.dng";
    TestFiles::write(path, tiff);
    const QByteArray before = fileHash(path);
    {
        const TiffView view(path);
        ASSERT_TRUE(view.isValid());
        EXPECT_EQ(view.emptiedValues(), 1);
        EXPECT_EQ(view.size(), std::size_t(tiff.size()));
        EXPECT_EQ(qFromLittleEndian<quint32>(view.data() + 10 + 12 + 4), 0u) << "the huge count is emptied";
        EXPECT_EQ(qFromLittleEndian<quint32>(view.data() + 10 + 24 + 4), 1024u) << "small values stay";
    }
    EXPECT_EQ(fileHash(path), before);

    TestFiles::write(dir.path() + "/y.jpg", QByteArray::fromHex("ffd8ffe000104a464946"));
    EXPECT_FALSE(TiffView(dir.path() + "/y.jpg").isValid());
    EXPECT_FALSE(TiffView(dir.path() + "/missing.dng").isValid());
    // An IFD offset past the end must not be followed.
    TestFiles::write(dir.path() + "/z.tif", QByteArray("II*\0\xff\xff\xff\x0f", 8) + QByteArray(16, '\0'));
    EXPECT_EQ(TiffView(dir.path() + "/z.tif").emptiedValues(), 0);
}
