#pragma once

#include <QList>
#include <QtGlobal>

#include <random>

namespace DemoShoot {

/// Every demo photo is this size when upright (sideways frames are stored transposed).
constexpr int pictureWidth = 1600;
constexpr int pictureHeight = 1067;

/// Random numbers for the demo shoot. std::mt19937's output is fixed by the standard
/// while the std distributions are not, so drawing through these keeps plans and
/// pictures identical with every standard library. Not thread-safe; one per job.
class Random {
public:
    explicit Random(quint32 seed) : m_engine(seed) {}
    quint32 next() { return m_engine(); }
    /// An integer in [low, high]; the tiny modulo bias does not matter here.
    int between(int low, int high) { return low + int(m_engine() % quint32(high - low + 1)); }
    /// A real number in [low, high).
    double real(double low, double high) { return low + (high - low) * (m_engine() / 4294967296.0); }
    bool chance(int percent) { return between(1, 100) <= percent; }
    template <typename T> T pick(const QList<T> &list) { return list.at(between(0, int(list.size()) - 1)); }
    /// Removes and returns a random element of a non-empty list.
    int take(QList<int> &list) { return list.takeAt(between(0, int(list.size()) - 1)); }

private:
    std::mt19937 m_engine;
};

} // namespace DemoShoot
