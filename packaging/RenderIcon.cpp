// Build-time tool: renders the scalable application icon into one square PNG for the icon
// theme's fixed-size folders (desktops that do not load SVG icons, and small sizes, use them).
//
//   tovrin_render_icon <icon.svg> <size in pixels> <output.png>

#include <cstdio>
#include <cstdlib>

#include <QByteArray>
#include <QImage>
#include <QPainter>
#include <QString>
#include <QSvgRenderer>

namespace {

constexpr int kSmallestSize = 8;
constexpr int kLargestSize = 1024;

int fail(const char* message, const char* detail) {
    std::fprintf(stderr, "tovrin_render_icon: %s%s\n", message, detail);
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return fail("usage: tovrin_render_icon <icon.svg> <size> <output.png>", "");
    }
    char* end = nullptr;
    const long size = std::strtol(argv[2], &end, 10);
    if (end == argv[2] || *end != '\0' || size < kSmallestSize || size > kLargestSize) {
        return fail("not a usable icon size: ", argv[2]);
    }

    QSvgRenderer renderer(QString::fromLocal8Bit(argv[1]));
    if (!renderer.isValid()) {
        return fail("cannot read the icon: ", argv[1]);
    }

    const int pixels = static_cast<int>(size);
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        renderer.render(&painter, QRectF(0, 0, pixels, pixels));
    }

    // Icon themes expect straight (not premultiplied) alpha in their PNGs.
    if (!image.convertToFormat(QImage::Format_ARGB32)
             .save(QString::fromLocal8Bit(argv[3]), "PNG")) {
        return fail("cannot write ", argv[3]);
    }
    return 0;
}
