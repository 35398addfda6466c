#pragma once

#include <QDateTime>
#include <QList>
#include <QPointF>
#include <QString>
#include <QStringList>

#include <functional>

/// A generated memory card: two cameras' JPEGs and DNG RAW files with full EXIF, drawn by
/// our own code, for trying the application without real photos and for tests of the
/// modules that read such files. Everything is decided by `plan` up front; `write` only
/// carries it out.
namespace DemoShoot {

inline constexpr int defaultCount = 60;
/// Small enough shoots cannot hold every kind of frame the plan promises.
inline constexpr int minimumCount = 12;
/// Each camera folder numbers its files with four digits.
inline constexpr int maximumCount = 9999;

/// One planned photo. A plain value, freely copied between threads.
struct DemoFrame {
    /// Which files the camera wrote for the photo. Every file of a frame shares the
    /// folder and base name and so forms one shot: "KSR_0007.DNG" beside "KSR_0007.JPG".
    enum class Files { jpeg, rawAndJpeg, raw };

    Files files = Files::jpeg;
    /// '/'-separated, below the shoot folder: the frame's JPEG, e.g. "DCIM/100KSRVI/KSR_0001.JPG",
    /// or its DNG when the frame has no JPEG. Never empty; without its extension it is the shot's id.
    QString relativePath;
    /// The frame's DNG, e.g. "DCIM/100KSRVI/KSR_0007.DNG"; empty when files is Files::jpeg.
    QString rawRelativePath;
    QString camera;       ///< the display name made from make and model ("Canon EOS R6")
    QString make;         ///< Exif.Image.Make as written
    QString model;        ///< Exif.Image.Model as written
    QString lens;         ///< Exif.Photo.LensModel as written
    QDateTime captureTime; ///< UTC, in whole hundredths of a second (what the file's date, sub-second and offset say)
    QString offsetText;   ///< the camera's UTC offset as written, e.g. "+02:00"
    int burst = 0;        ///< 0 when not in a burst, else the 1-based burst number in time order
    bool blurred = false; ///< drawn clearly out of focus
    bool damagedMetadata = false; ///< the EXIF block is unreadable on purpose; the pixels are fine
    int orientation = 1;  ///< EXIF orientation; 6 means the pixels are stored turned a quarter left
    int width = 0;        ///< stored pixel width
    int height = 0;       ///< stored pixel height
    int exposureDenominator = 0; ///< exposure time is 1/exposureDenominator s
    double fNumber = 0;
    int iso = 0;
    int focalLengthMm = 0;
    quint32 sceneSeed = 0; ///< frames of one burst, and both frames of a two-camera moment, share it
    quint32 grainSeed = 0; ///< sensor grain, different for every frame
    QPointF sceneShift;    ///< hand-held drift of the upright picture in pixels

    friend bool operator==(const DemoFrame &, const DemoFrame &) = default;
};

/// The whole shoot for `count` photos (clamped to minimumCount…maximumCount), in capture
/// order. Pure and deterministic: the same count always gives the same plan. Holds
/// bursts of 3–6 frames 0.2–0.8 s apart from one camera, single frames well over a second
/// from the same camera's other frames, at least one moment where both cameras fire in
/// the same second, 3–4 blurred frames (some inside bursts), one or two frames stored
/// sideways with orientation 6, and exactly one frame with damaged metadata. Files: every
/// frame of one burst, the first sideways frame and count/20 (at least one) other frames
/// are RAW+JPEG; count/30 (at least one) frames outside that burst are a DNG alone; all
/// others, the damaged frame always among them, are a JPEG alone.
QList<DemoFrame> plan(int count);

/// Every file of `frame` below the shoot folder, the DNG first as a scan lists them.
QStringList relativePaths(const DemoFrame &frame);

/// What a finished write made.
struct WriteResult {
    int written = 0; ///< files
    int photos = 0;  ///< frames, every file of each
};

/// Writes the files of plan(count) below `dir`, creating folders as needed. Refuses,
/// writing nothing, when any of the files already exists: never overwrites. Each file is
/// written atomically. Uses the global thread pool; blocks until done. `progress`, when
/// set, is called on the calling thread with the number of frames finished so far.
/// Throws FileError, whose description names the file and the cause (and how many files
/// were written before the failure); files written before it stay.
WriteResult write(const QString &dir, int count,
                  const std::function<void(int done, int total)> &progress = {});

} // namespace DemoShoot
