#pragma once

#include <QByteArray>
#include <QImage>
#include <QString>

#include <optional>

/// JPEG encoding through TurboJPEG, for generated files and for the small previews sent
/// to an AI service.
namespace JpegEncoder {

/// The quality used when a caller has no reason to choose another.
constexpr int defaultQuality = 85;

/// `image` as a baseline 4:2:0 JPEG at `quality` (1–100) without any metadata; any pixel
/// format is accepted (converted to RGB32 first when needed). Returns nothing and sets
/// `error` (when given) if TurboJPEG fails or the image is empty; safe on any thread.
std::optional<QByteArray> encode(const QImage &image, int quality, QString *error = nullptr);

} // namespace JpegEncoder
