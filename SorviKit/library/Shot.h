#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>

/// One photograph as the photographer rates it: a RAW file, a rendered file, or a
/// RAW+rendered pair shown as one. A plain value, freely copied between threads.
struct Shot {
    Shot() = default;
    /// A shot with only its identity and files; every detail takes its default.
    Shot(QString id, QStringList files) : id(std::move(id)), files(std::move(files)) {}

    QString id;        ///< path relative to the opened folder, without extension; case as on disk
    QStringList files; ///< absolute paths, never empty, RAW files first
    std::optional<QDateTime> captureDate; ///< absolute moment of capture (UTC), when known
    std::optional<QString> camera;
    std::optional<QString> lens;
    int width = 0;
    int height = 0;
    int orientation = 1; ///< EXIF orientation code 1–8
    std::optional<QString> exposure; ///< e.g. "1/250 s · f/2.8 · ISO 400 · 35 mm"
    std::uint64_t byteSize = 0;      ///< total size of all files

    friend bool operator==(const Shot &, const Shot &) = default;

    std::optional<QString> raw() const;      ///< first RAW file, if any
    std::optional<QString> rendered() const; ///< first rendered (JPEG, HEIC, …) file, if any
    QString displayFile() const;             ///< rendered if present, else the first file
    bool isPair() const { return raw() && rendered(); }
    QString kinds() const; ///< upper-cased extensions in file order joined by " + "
    QString name() const;  ///< last path component of the id
};

size_t qHash(const Shot &shot, size_t seed = 0) noexcept;
