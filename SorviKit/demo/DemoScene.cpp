#include "SorviKit/demo/DemoScene.h"

#include "SorviKit/demo/DemoShoot_p.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>

#include <algorithm>
#include <cmath>
#include <vector>

namespace DemoScene {
namespace {

using DemoShoot::Random;
using DemoShoot::pictureHeight;
using DemoShoot::pictureWidth;

// The scene reaches this far past the picture so that hand-held drift never shows an edge.
constexpr int margin = 180;

struct Look {
    QColor skyTop;
    QColor skyHorizon;
    QColor haze;
    QColor landFar;
    QColor landNear;
    double horizon; // y of the far hills' foot
    bool isEvening;
};

Look chooseLook(Random &random)
{
    const int hue = random.between(198, 220);
    Look look;
    look.isEvening = random.chance(30);
    look.skyTop = QColor::fromHsv(hue, random.between(150, 200), random.between(175, 215));
    look.skyHorizon = look.isEvening ? QColor::fromHsv(random.between(22, 38), 120, 250)
                                     : QColor::fromHsv(hue, 55, 245);
    look.haze = QColor::fromHsv(hue - 8, 70, random.between(150, 180));
    look.landFar = QColor::fromHsv(random.between(70, 105), 150, random.between(140, 165));
    look.landNear = QColor::fromHsv(random.between(60, 95), 170, random.between(75, 100));
    look.horizon = pictureHeight * random.between(46, 58) / 100.0;
    return look;
}

// Depth 0 at the horizon, 1 at the bottom edge: near things are drawn larger.
double depthAt(const Look &look, double y)
{
    return std::clamp((y - look.horizon) / (pictureHeight - look.horizon), 0.0, 1.2);
}

void drawSky(QPainter &painter, Random &random, const Look &look)
{
    QLinearGradient sky(0, -margin, 0, look.horizon);
    sky.setColorAt(0, look.skyTop);
    sky.setColorAt(1, look.skyHorizon);
    painter.fillRect(QRectF(-margin, -margin, pictureWidth + 2 * margin, look.horizon + margin + 60), sky);

    const double radius = look.isEvening ? random.between(45, 70) : random.between(25, 45);
    const QPointF sun(random.between(150, pictureWidth - 150),
                      look.isEvening ? look.horizon - random.between(70, 140)
                                     : random.between(90, int(look.horizon) - 180));
    QRadialGradient glow(sun, radius * 5);
    glow.setColorAt(0, QColor(255, 252, 235));
    glow.setColorAt(0.2, QColor(255, 245, 215));
    glow.setColorAt(0.21, QColor(255, 240, 200, 150));
    glow.setColorAt(1, QColor(255, 240, 200, 0));
    painter.setPen(Qt::NoPen);
    painter.setBrush(glow);
    painter.drawEllipse(sun, radius * 5, radius * 5);
}

void drawClouds(QPainter &painter, Random &random, const Look &look)
{
    const int clusters = random.between(2, 6);
    for (int c = 0; c < clusters; ++c) {
        const QPointF centre(random.between(-100, pictureWidth + 100),
                             random.between(20, std::max(40, int(look.horizon) - 220)));
        const QColor white = look.isEvening ? QColor(255, 226, 215) : QColor(250, 252, 255);
        for (int i = random.between(6, 12); i > 0; --i) {
            QColor puff = white.darker(random.between(100, 112));
            puff.setAlpha(random.between(150, 220));
            painter.setBrush(puff);
            painter.drawEllipse(centre + QPointF(random.between(-130, 130), random.between(-25, 25)),
                                random.between(40, 90), random.between(18, 40));
        }
    }
}

// A ridge line from two slow waves plus a little jitter, filled down past the bottom.
void drawRidge(QPainter &painter, Random &random, double base, double amplitude, const QBrush &fill)
{
    const double f1 = random.real(0.002, 0.005), f2 = random.real(0.008, 0.02);
    const double p1 = random.real(0, 6.28), p2 = random.real(0, 6.28);
    QPainterPath ridge(QPointF(-margin, pictureHeight + margin));
    for (int x = -margin; x <= pictureWidth + margin; x += 6) {
        const double wave = 0.65 * std::sin(x * f1 + p1) + 0.35 * std::sin(x * f2 + p2);
        ridge.lineTo(x, base - amplitude * wave - random.real(0, 3));
    }
    ridge.lineTo(pictureWidth + margin, pictureHeight + margin);
    ridge.closeSubpath();
    painter.setBrush(fill);
    painter.drawPath(ridge);
}

void drawLand(QPainter &painter, Random &random, const Look &look)
{
    drawRidge(painter, random, look.horizon - 20, random.between(30, 80), look.haze);
    QLinearGradient land(0, look.horizon, 0, pictureHeight);
    land.setColorAt(0, look.landFar);
    land.setColorAt(1, look.landNear);
    drawRidge(painter, random, look.horizon + 25, random.between(10, 30), land);
    if (random.chance(50)) {
        const double foot = random.between(300, pictureWidth - 300);
        const double vanish = random.between(500, pictureWidth - 500);
        const QPointF road[] = {{foot - 220, pictureHeight + margin}, {foot + 220, pictureHeight + margin},
                                {vanish + 5, look.horizon + 32}, {vanish - 5, look.horizon + 32}};
        painter.setBrush(QColor::fromHsv(random.between(25, 40), 60, 170));
        painter.drawPolygon(road, 4);
    }
}

void drawTree(QPainter &painter, Random &random, const Look &look, double x, double y)
{
    const double height = 50 + 380 * depthAt(look, y);
    const double crown = height * 0.33;
    painter.setBrush(QColor::fromHsv(random.between(20, 30), 120, random.between(50, 80)));
    painter.drawRect(QRectF(x - height * 0.035, y - height * 0.6, height * 0.07, height * 0.6));
    const QPointF centre(x, y - height + crown);
    for (int i = 0; i < 45; ++i) {
        const double size = crown * random.real(0.2, 0.45);
        painter.setBrush(QColor::fromHsv(random.between(80, 130), random.between(120, 210),
                                         random.between(45, 150)));
        painter.drawEllipse(centre + QPointF(random.real(-0.8, 0.8) * crown, random.real(-0.8, 0.8) * crown),
                            size, size * random.real(0.6, 1.0));
    }
    painter.setBrush(QColor::fromHsv(random.between(70, 100), 120, 200));
    for (int i = 0; i < 40; ++i) // sunlit leaves: fine detail a defocus washes away
        painter.drawEllipse(centre + QPointF(random.real(-0.9, 0.9) * crown, random.real(-0.9, 0.9) * crown),
                            1.5, 1.5);
}

void drawHouse(QPainter &painter, Random &random, const Look &look, double x, double y)
{
    const double scale = 0.3 + 1.2 * depthAt(look, y);
    const double w = random.between(120, 240) * scale, h = random.between(80, 150) * scale;
    static const QList<QColor> walls = {QColor(236, 230, 214), QColor(214, 176, 110), QColor(168, 82, 62),
                                        QColor(150, 166, 184), QColor(226, 214, 190)};
    painter.setBrush(random.pick(walls));
    painter.drawRect(QRectF(x, y - h, w, h));
    const QPointF roof[] = {{x - w * 0.06, y - h}, {x + w * 1.06, y - h}, {x + w / 2, y - h - h * 0.55}};
    painter.setBrush(QColor::fromHsv(random.pick(QList<int>{5, 15, 210}), 120, random.between(70, 120)));
    painter.drawPolygon(roof, 3);
    painter.setPen(QPen(QColor(245, 245, 240), std::max(1.0, 2 * scale)));
    painter.setBrush(QColor(40, 60, 90));
    const int columns = random.between(2, 4);
    for (int row = 0; row < 2; ++row) {
        for (int c = 0; c < columns; ++c) {
            const double cell = w / columns;
            painter.drawRect(QRectF(x + c * cell + cell * 0.3, y - h + h * (0.15 + 0.45 * row), cell * 0.4, h * 0.25));
        }
    }
    painter.setPen(Qt::NoPen);
}

void drawObjects(QPainter &painter, Random &random, const Look &look)
{
    const int kind = random.between(0, 2); // trees, houses, or both
    struct Place { double x, y; bool isHouse; };
    std::vector<Place> places;
    for (int i = random.between(5, 11); i > 0; --i) {
        const bool isHouse = kind == 1 || (kind == 2 && random.chance(40));
        const double y = look.horizon + random.between(30, isHouse ? 200 : pictureHeight - int(look.horizon) + 60);
        places.push_back({double(random.between(-100, pictureWidth + 100)), y, isHouse});
    }
    // Far objects first so that near ones cover them.
    std::sort(places.begin(), places.end(), [](const Place &a, const Place &b) { return a.y < b.y; });
    for (const Place &place : places) {
        if (place.isHouse)
            drawHouse(painter, random, look, place.x, place.y);
        else
            drawTree(painter, random, look, place.x, place.y);
    }
}

void drawGrass(QPainter &painter, Random &random, const Look &look)
{
    std::vector<QLineF> blades[6];
    for (int i = 0; i < 6000; ++i) {
        const double y = random.real(look.horizon + 40, pictureHeight + margin);
        const double depth = depthAt(look, y);
        const double length = 3 + 26 * depth, lean = random.real(-0.35, 0.35);
        const QPointF foot(random.real(-margin, pictureWidth + margin), y);
        blades[random.between(0, 5)].push_back(
            QLineF(foot, foot + QPointF(length * std::sin(lean), -length * std::cos(lean))));
    }
    for (int shade = 0; shade < 6; ++shade) {
        painter.setPen(QPen(QColor::fromHsv(55 + 12 * shade, 150 + 15 * (shade % 3), 60 + 28 * shade), 1.4));
        painter.drawLines(blades[shade].data(), int(blades[shade].size()));
    }
    painter.setPen(Qt::NoPen);
    static const QList<QColor> flowers = {QColor(250, 250, 245), QColor(250, 215, 60), QColor(170, 110, 200)};
    for (int i = 0; i < 160; ++i) {
        painter.setBrush(random.pick(flowers));
        const double y = random.real(look.horizon + 80, pictureHeight + 20);
        const double size = 1 + 3 * depthAt(look, y);
        painter.drawEllipse(QPointF(random.real(0, pictureWidth), y), size, size);
    }
}

// Luminance noise as a sensor adds it, from a fast generator because it runs per pixel.
void addGrain(QImage &image, quint32 seed)
{
    quint32 state = seed | 1u;
    for (int y = 0; y < image.height(); ++y) {
        QRgb *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            const int n = int(state % 15) - 7;
            const QRgb c = line[x];
            line[x] = qRgb(std::clamp(qRed(c) + n, 0, 255), std::clamp(qGreen(c) + n, 0, 255),
                           std::clamp(qBlue(c) + n, 0, 255));
        }
    }
}

// One box pass along a row or column of `length` pixels `step` apart, edges repeated.
void boxRun(QRgb *pixels, int length, qsizetype step, int radius, std::vector<QRgb> &copy)
{
    copy.resize(length);
    for (int i = 0; i < length; ++i)
        copy[i] = pixels[i * step];
    const auto at = [&](int i) { return copy[std::clamp(i, 0, length - 1)]; };
    int r = 0, g = 0, b = 0;
    for (int i = -radius; i <= radius; ++i) {
        r += qRed(at(i));
        g += qGreen(at(i));
        b += qBlue(at(i));
    }
    const int window = 2 * radius + 1;
    for (int i = 0; i < length; ++i) {
        pixels[i * step] = qRgb(r / window, g / window, b / window);
        const QRgb in = at(i + radius + 1), out = at(i - radius);
        r += qRed(in) - qRed(out);
        g += qGreen(in) - qGreen(out);
        b += qBlue(in) - qBlue(out);
    }
}

// Box blur in place; three passes come close to a Gaussian defocus.
void defocus(QImage &image, int radius, int passes)
{
    Q_ASSERT(image.format() == QImage::Format_RGB32);
    std::vector<QRgb> copy;
    QRgb *bits = reinterpret_cast<QRgb *>(image.bits());
    const qsizetype stride = image.bytesPerLine() / qsizetype(sizeof(QRgb));
    for (int pass = 0; pass < passes; ++pass) {
        for (int y = 0; y < image.height(); ++y)
            boxRun(bits + y * stride, image.width(), 1, radius, copy);
        for (int x = 0; x < image.width(); ++x)
            boxRun(bits + x, image.height(), stride, radius, copy);
    }
}

} // namespace

QImage render(const DemoShoot::DemoFrame &frame)
{
    QImage image(pictureWidth, pictureHeight, QImage::Format_RGB32);
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.translate(frame.sceneShift);
        Random random(frame.sceneSeed);
        const Look look = chooseLook(random);
        drawSky(painter, random, look);
        drawClouds(painter, random, look);
        drawLand(painter, random, look);
        drawGrass(painter, random, look);
        drawObjects(painter, random, look);
    }
    addGrain(image, frame.grainSeed);
    // Grain goes in before the defocus: a blurred frame must lack fine detail entirely.
    if (frame.blurred)
        defocus(image, 9, 3);
    if (frame.orientation == 6)
        image = image.transformed(QTransform().rotate(-90));
    return image;
}

} // namespace DemoScene
