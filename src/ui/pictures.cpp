#include "ui/pictures.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

namespace tolma::ui {

QPixmap startPicture(int width, int height) {
    QPixmap pixmap(width, height);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    QLinearGradient sky(0, 0, 0, height);
    sky.setColorAt(0, QColor(214, 230, 245));
    sky.setColorAt(1, QColor(245, 248, 252));
    p.fillRect(pixmap.rect(), sky);

    // The town hall: a wide front with columns, a gable and a clock.
    const double w = width, h = height;
    const QRectF front(w * 0.22, h * 0.38, w * 0.56, h * 0.44);
    p.setPen(QPen(QColor(90, 70, 50), 2));
    p.setBrush(QColor(236, 222, 196));
    p.drawRect(front);
    QPainterPath gable;
    gable.moveTo(front.left() - w * 0.03, front.top());
    gable.lineTo(w * 0.5, h * 0.16);
    gable.lineTo(front.right() + w * 0.03, front.top());
    gable.closeSubpath();
    p.setBrush(QColor(176, 64, 48));
    p.drawPath(gable);
    p.setBrush(Qt::white);
    p.drawEllipse(QPointF(w * 0.5, h * 0.29), h * 0.05, h * 0.05);
    p.drawLine(QPointF(w * 0.5, h * 0.29), QPointF(w * 0.5, h * 0.255));
    p.drawLine(QPointF(w * 0.5, h * 0.29), QPointF(w * 0.525, h * 0.29));
    p.setBrush(QColor(120, 150, 180));
    for (int i = 0; i < 5; ++i) {
        const double x = front.left() + front.width() * (0.08 + i * 0.19);
        p.drawRect(QRectF(x, front.top() + front.height() * 0.15, front.width() * 0.1,
                          front.height() * 0.28));
    }
    p.setBrush(QColor(110, 80, 50));
    p.drawRect(
        QRectF(w * 0.46, front.top() + front.height() * 0.55, w * 0.08, front.height() * 0.45));
    p.setPen(QColor(60, 60, 60));
    p.drawLine(QPointF(0, front.bottom()), QPointF(w, front.bottom()));

    // The sign over the door.
    QFont font = p.font();
    font.setBold(true);
    font.setPointSizeF(std::max(8.0, h * 0.035));
    p.setFont(font);
    p.setPen(QColor(40, 40, 90));
    p.drawText(QRectF(front.left(), front.top() + front.height() * 0.44, front.width(), h * 0.06),
               Qt::AlignCenter, "Gewerbeamt");
    font.setPointSizeF(std::max(9.0, h * 0.05));
    p.setFont(font);
    p.drawText(QRectF(0, h * 0.86, w, h * 0.12), Qt::AlignCenter, "TOLMA_4x_Access");
    return pixmap;
}

QPixmap sidePicture(int width, int height) {
    QPixmap pixmap(width, height);
    pixmap.fill(QColor(245, 248, 252));
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    const double w = width, h = height;
    // A stack of file cards.
    for (int i = 2; i >= 0; --i) {
        const QRectF card(w * 0.1 + i * 6, h * 0.2 + i * 6, w * 0.75, h * 0.55);
        p.setPen(QPen(QColor(120, 120, 120), 1.5));
        p.setBrush(i == 0 ? QColor(255, 253, 240) : QColor(235, 232, 215));
        p.drawRoundedRect(card, 6, 6);
    }
    p.setPen(QPen(QColor(150, 170, 200), 1));
    for (int i = 1; i <= 6; ++i) {
        const double y = h * 0.2 + h * 0.55 * i / 7.5;
        p.drawLine(QPointF(w * 0.15, y), QPointF(w * 0.78, y));
    }
    // A round stamp.
    p.setPen(QPen(QColor(170, 40, 40), 3));
    p.setBrush(Qt::NoBrush);
    const QPointF centre(w * 0.68, h * 0.62);
    p.drawEllipse(centre, w * 0.16, w * 0.16);
    p.drawEllipse(centre, w * 0.12, w * 0.12);
    QFont font = p.font();
    font.setBold(true);
    font.setPointSizeF(std::max(5.0, w * 0.032));
    p.setFont(font);
    p.setPen(QColor(170, 40, 40));
    p.drawText(QRectF(centre.x() - w * 0.16, centre.y() - w * 0.05, w * 0.32, w * 0.1),
               Qt::AlignCenter, "AMT");
    return pixmap;
}

}  // namespace tolma::ui
