#include "Pictures.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

using namespace Qt::StringLiterals;

namespace {

const QColor kAccent(0, 94, 170);

// The display with a measured value.
QRectF drawDisplay(QPainter &p, const QRectF &body)
{
    const QRectF display(body.left() + body.width() * 0.08, body.top() + body.height() * 0.14,
                         body.width() * 0.56, body.height() * 0.42);
    QLinearGradient glass(display.topLeft(), display.bottomLeft());
    glass.setColorAt(0, QColor(24, 52, 40));
    glass.setColorAt(1, QColor(12, 32, 24));
    p.setPen(QPen(QColor(60, 70, 80), 1));
    p.setBrush(glass);
    p.drawRoundedRect(display, 3, 3);
    QFont digits(u"DejaVu Sans Mono"_s);
    digits.setStyleHint(QFont::Monospace);
    digits.setBold(true);
    digits.setPixelSize(qMax(6, int(display.height() * 0.55)));
    p.setFont(digits);
    p.setPen(QColor(120, 255, 170));
    p.drawText(display, Qt::AlignCenter, u"0.000"_s);
    return display;
}

// Keys: RESET, ZERO, RANGE, SETUP and the red POWER key.
void drawKeys(QPainter &p, const QRectF &body, const QRectF &display)
{
    const qreal keyW = body.width() * 0.10;
    const qreal keyH = body.height() * 0.14;
    const qreal keysTop = body.top() + body.height() * 0.70;
    p.setPen(QPen(QColor(90, 98, 110), 1));
    p.setBrush(QColor(108, 118, 132));
    for (int i = 0; i < 4; ++i)
        p.drawRoundedRect(QRectF(display.left() + i * (keyW * 1.45), keysTop, keyW, keyH), 2, 2);
    const QRectF power(body.left() + body.width() * 0.76, keysTop, keyW * 1.2, keyH);
    p.setBrush(QColor(200, 40, 40));
    p.drawRoundedRect(power, 2, 2);
}

} // namespace

QPixmap Pictures::instrumentPicture(const QSize &size, qreal devicePixelRatio)
{
    QPixmap pixmap(size * devicePixelRatio);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::TextAntialiasing);

    const qreal w = size.width();
    const qreal h = size.height();

    // The cable leaves the instrument at the right and bends down towards the computer.
    QPainterPath cable;
    cable.moveTo(w * 0.80, h * 0.50);
    cable.cubicTo(w * 0.97, h * 0.50, w * 0.90, h * 0.92, w * 0.99, h * 0.95);
    p.setPen(QPen(QColor(70, 70, 70), h * 0.05, Qt::SolidLine, Qt::RoundCap));
    p.drawPath(cable);

    // Housing.
    const QRectF body(w * 0.03, h * 0.12, w * 0.78, h * 0.76);
    QLinearGradient housing(body.topLeft(), body.bottomLeft());
    housing.setColorAt(0, QColor(236, 239, 243));
    housing.setColorAt(1, QColor(196, 202, 210));
    p.setPen(QPen(QColor(120, 128, 138), 1.2));
    p.setBrush(housing);
    p.drawRoundedRect(body, h * 0.08, h * 0.08);

    const QRectF display = drawDisplay(p, body);
    drawKeys(p, body, display);

    // Status LED and the connector.
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(60, 200, 90));
    const qreal led = body.height() * 0.08;
    p.drawEllipse(QPointF(body.left() + body.width() * 0.82, display.top() + led), led / 2,
                  led / 2);
    p.setBrush(kAccent);
    p.drawRoundedRect(QRectF(body.right() - 2, h * 0.44, w * 0.05, h * 0.12), 2, 2);
    return pixmap;
}
