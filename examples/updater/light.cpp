#include "light.h"

#include <QtGui/QPainter>
#include <QtWidgets/QGridLayout>
#include <QtWidgets/QLabel>

namespace {

constexpr int lampSize = 16;

/// In the order of Reachability::State.
struct Look {
    QRgb colour;
    const char *words;
};

constexpr Look looks[] = {
    {0xff9a9a9a, QT_TRANSLATE_NOOP("Light", "Not asked yet")},
    {0xff2e9e4f, QT_TRANSLATE_NOOP("Light", "Server answers")},
    {0xffc8302c, QT_TRANSLATE_NOOP("Light", "Not reachable")},
    {0xffdf8a14, QT_TRANSLATE_NOOP("Light", "Server is silent")},
};

QPixmap lamp(const QColor &colour, qreal ratio)
{
    QPixmap pixmap(QSize(lampSize, lampSize) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(colour.darker());
    painter.setBrush(colour);
    painter.drawEllipse(QRectF(1.5, 1.5, lampSize - 3, lampSize - 3));
    return pixmap;
}

} // namespace

Light::Light(QWidget *parent)
    : QWidget(parent)
    , m_lamp(new QLabel(this))
    , m_words(new QLabel(this))
    , m_time(new QLabel(this))
{
    m_words->setObjectName(QStringLiteral("lightWords"));
    m_time->setObjectName(QStringLiteral("lightTime"));
    m_lamp->setObjectName(QStringLiteral("lightLamp"));
    auto *layout = new QGridLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_lamp, 0, 0);
    layout->addWidget(m_words, 0, 1);
    layout->addWidget(m_time, 1, 1);
    layout->setColumnStretch(1, 1);
    show(Reachability::State::Unknown, QTime());
}

void Light::show(Reachability::State state, const QTime &lastAnswer)
{
    const Look &look = looks[static_cast<int>(state)];
    m_lamp->setPixmap(lamp(QColor(look.colour), devicePixelRatioF()));
    m_words->setText(tr(look.words));
    m_time->setText(lastAnswer.isNull()
                        ? tr("No answer so far")
                        : tr("Last answer %1").arg(lastAnswer.toString(Qt::ISODate)));
    setAccessibleName(m_words->text());
}
