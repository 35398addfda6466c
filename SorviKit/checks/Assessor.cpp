#include "SorviKit/checks/Assessor.h"

#include "SorviKit/checks/FaceCheck.h"
#include "SorviKit/previews/PreviewLoader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace Assessor {
namespace {

constexpr int gridSize = 4;

struct TileSums {
    double sum = 0;
    double squares = 0;
    qint64 count = 0;
};

// The picture as W × H grey bytes, W and H its size scaled to fit 1024 px (never
// enlarged), each at least 8. Rows are W bytes apart.
std::vector<std::uint8_t> greyPixels(const QImage &image, int &width, int &height)
{
    const double scale = std::min(1024.0 / std::max(image.width(), image.height()), 1.0);
    width = std::max(8, int(scale * image.width()));
    height = std::max(8, int(scale * image.height()));
    QImage grey = image.size() == QSize(width, height)
                      ? image
                      : image.scaled(width, height, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    grey = grey.convertToFormat(QImage::Format_Grayscale8);
    std::vector<std::uint8_t> pixels(std::size_t(width) * height);
    for (int y = 0; y < height; ++y)
        std::copy_n(grey.constScanLine(y), width, pixels.begin() + std::ptrdiff_t(y) * width);
    return pixels;
}

// One row of the Laplacian, interior columns only (the border stays 0).
void laplacianRow(const std::uint8_t *above, const std::uint8_t *row, const std::uint8_t *below,
                  int width, float *out)
{
    for (int x = 1; x < width - 1; ++x)
        out[x] = float(row[x - 1]) + float(row[x + 1]) + float(above[x]) + float(below[x]) - 4.0f * float(row[x]);
}

// Each row's sums are taken in single precision (so the compiler can vectorise them) and
// added to the tile's totals in double precision, which keeps large pictures exact enough.
void addRow(const float *laplacian, const std::array<int, gridSize + 1> &columns,
            std::array<TileSums, gridSize> &tiles)
{
    for (int j = 0; j < gridSize; ++j) {
        float sum = 0, squares = 0;
        const int c0 = std::max(1, columns[j]), c1 = columns[j + 1];
        for (int x = c0; x < c1; ++x) {
            sum += laplacian[x];
            squares += laplacian[x] * laplacian[x];
        }
        tiles[j].sum += sum;
        tiles[j].squares += squares;
        tiles[j].count += std::max(0, c1 - c0);
    }
}

} // namespace

double sharpness(const QImage &image)
{
    if (image.isNull())
        return 0;
    int width = 0, height = 0;
    const std::vector<std::uint8_t> grey = greyPixels(image, width, height);
    std::array<int, gridSize + 1> columns{};
    for (int j = 0; j <= gridSize; ++j)
        columns[j] = std::min(width - 1, j * width / gridSize);
    std::vector<float> laplacian(std::size_t(width), 0.0f);
    double best = 0;
    for (int i = 0; i < gridSize; ++i) {
        const int r0 = std::max(1, i * height / gridSize), r1 = std::min(height - 1, (i + 1) * height / gridSize);
        std::array<TileSums, gridSize> tiles{};
        for (int y = r0; y < r1; ++y) {
            const std::uint8_t *row = grey.data() + std::ptrdiff_t(y) * width;
            laplacianRow(row - width, row, row + width, width, laplacian.data());
            addRow(laplacian.data(), columns, tiles);
        }
        for (const TileSums &tile : tiles) {
            if (tile.count == 0)
                continue;
            const double mean = tile.sum / double(tile.count);
            best = std::max(best, tile.squares / double(tile.count) - mean * mean);
        }
    }
    return best;
}

Assessment assess(const QImage &image, int orientation,
                  const std::function<std::optional<OrientedImage>(int longSide)> &larger)
{
    Assessment result;
    result.sharpness = sharpness(image);
    // Faces are found on upright pictures; the eye pass asks for the larger one only
    // once a face was seen on this one.
    const QImage upright = PreviewLoader::upright(image, orientation);
    const FaceFindings found = FaceCheck::check(upright, [&](int longSide) -> std::optional<QImage> {
        if (!larger)
            return std::nullopt;
        const std::optional<OrientedImage> picture = larger(longSide);
        if (!picture || picture->first.isNull())
            return std::nullopt;
        return PreviewLoader::upright(picture->first, picture->second);
    });
    result.faces = found.faces;
    result.eyesClosed = found.eyesClosed;
    result.faceQuality = found.faceQuality;
    result.faceMarks = found.faceMarks; // fractions of the upright picture, as stored
    return result;
}

QString eyeReport(const QImage &image, int orientation)
{
    return FaceCheck::check(PreviewLoader::upright(image, orientation), {}).eyeReport;
}

Edge edge(const Assessment &candidate, const Assessment &other)
{
    const bool candidateClosed = candidate.eyesClosed > 0, otherClosed = other.eyesClosed > 0;
    if (candidateClosed != otherClosed)
        return otherClosed ? Edge::eyesOpen : Edge::none;
    if (candidate.faceQuality && other.faceQuality && std::abs(*candidate.faceQuality - *other.faceQuality) > 0.05)
        return *candidate.faceQuality > *other.faceQuality ? Edge::betterFaces : Edge::none;
    return candidate.sharpness > other.sharpness ? Edge::sharper : Edge::none;
}

QSet<QString> bestOfBursts(const QList<QStringList> &bursts, const QHash<QString, Assessment> &results)
{
    QSet<QString> best;
    for (const QStringList &burst : bursts) {
        const bool allAssessed = std::all_of(burst.begin(), burst.end(),
                                             [&](const QString &id) { return results.contains(id); });
        if (burst.isEmpty() || !allAssessed)
            continue;
        QString winner = burst.first();
        for (const QString &id : burst)
            if (edge(results[id], results[winner]) != Edge::none)
                winner = id;
        best.insert(winner);
    }
    return best;
}

std::optional<double> typicalSharpness(const QHash<QString, Assessment> &results)
{
    std::vector<double> values;
    values.reserve(std::size_t(results.size()));
    for (const Assessment &assessment : results)
        values.push_back(assessment.sharpness);
    if (values.size() <= 4)
        return std::nullopt; // too few to judge
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

QSet<QString> soft(const QHash<QString, Assessment> &results, double fraction)
{
    const std::optional<double> typical = typicalSharpness(results);
    if (!typical)
        return {};
    const double limit = *typical * fraction;
    QSet<QString> result;
    for (auto it = results.begin(); it != results.end(); ++it)
        if (it->sharpness < limit)
            result.insert(it.key());
    return result;
}

} // namespace Assessor
