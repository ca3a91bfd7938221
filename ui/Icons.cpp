#include "ui/Icons.h"

#include <QApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace parlova::ui {

QIcon themedIcon(const char* freedesktopName, QStyle::StandardPixmap fallback) {
    return QIcon::fromTheme(QLatin1String(freedesktopName), QApplication::style()->standardIcon(fallback));
}

namespace {

QPixmap paintAppIcon(int size, const QColor& accent) {
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(size / 64.0, size / 64.0);
    // Speech bubble.
    QPainterPath bubble;
    bubble.addRoundedRect(QRectF(4, 4, 56, 46), 14, 14);
    QPainterPath tail;
    tail.moveTo(16, 46);
    tail.lineTo(12, 60);
    tail.lineTo(30, 48);
    p.fillPath(bubble.united(tail), accent);
    // Microphone.
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::white);
    p.drawRoundedRect(QRectF(26, 11, 12, 22), 6, 6);
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(Qt::white, 3, Qt::SolidLine, Qt::RoundCap));
    p.drawArc(QRectF(20, 18, 24, 22), 200 * 16, 140 * 16);
    p.drawLine(QPointF(32, 40), QPointF(32, 44));
    return pixmap;
}

}  // namespace

QIcon appIcon(const QColor& accent) {
    QIcon icon;
    for (int size : {16, 22, 24, 32, 48, 64, 128, 256}) icon.addPixmap(paintAppIcon(size, accent));
    return icon;
}

}  // namespace parlova::ui
