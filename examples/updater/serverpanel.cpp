#include "serverpanel.h"

#include "light.h"

#include <QtCore/QDir>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QGridLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QSpinBox>

#include <iterator>

namespace {

constexpr int highestPort = 65535;

struct TextField {
    const char *name;
    const char *label;
    QString ServerSettings::*member;
    int row;
    int column;
    int span;
    /// The library needs absolute paths.
    bool isServerPath;
};

constexpr TextField fields[] = {
    {"host", QT_TRANSLATE_NOOP("ServerPanel", "&Host:"), &ServerSettings::host, 0, 0, 1, false},
    {"definitionPath", QT_TRANSLATE_NOOP("ServerPanel", "&Definition:"),
     &ServerSettings::definitionPath, 1, 0, 1, true},
    {"indexPath", QT_TRANSLATE_NOOP("ServerPanel", "&Index:"), &ServerSettings::indexPath, 1, 2, 2,
     true},
    {"changeLogPath", QT_TRANSLATE_NOOP("ServerPanel", "Ch&ange log:"),
     &ServerSettings::changeLogPath, 2, 0, 1, true},
    {"folder", QT_TRANSLATE_NOOP("ServerPanel", "&Save to:"), &ServerSettings::folder, 2, 2, 1,
     false},
};
constexpr int folderField = 4;

QString absolutePath(const QString &path)
{
    const bool isRelative = !path.isEmpty() && !path.startsWith(QLatin1Char('/'));
    return isRelative ? QLatin1Char('/') + path : path;
}

} // namespace

ServerPanel::ServerPanel(QWidget *parent)
    : QWidget(parent)
{
    auto *layout = new QGridLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setColumnStretch(1, 1);
    layout->setColumnStretch(3, 1);
    // Tab goes from field to field in the order in which they are made.
    for (int number = 0; number < static_cast<int>(std::size(fields)); ++number) {
        addField(layout, number);
        if (number == 0)
            addPort(layout);
    }
    addBrowse(layout);
    addRight(layout);
}

ServerSettings ServerPanel::settings() const
{
    ServerSettings settings;
    for (int i = 0; i < m_texts.size(); ++i) {
        const QString text = m_texts.at(i)->text().trimmed();
        settings.*fields[i].member = fields[i].isServerPath ? absolutePath(text) : text;
    }
    settings.folder = QDir::fromNativeSeparators(settings.folder);
    settings.port = m_port->value();
    return settings;
}

void ServerPanel::setSettings(const ServerSettings &settings)
{
    for (int i = 0; i < m_texts.size(); ++i)
        m_texts.at(i)->setText(settings.*fields[i].member);
    m_texts.at(folderField)->setText(QDir::toNativeSeparators(settings.folder));
    m_port->setValue(settings.port);
}

void ServerPanel::addField(QGridLayout *layout, int number)
{
    const TextField &field = fields[number];
    auto *edit = new QLineEdit(this);
    edit->setObjectName(QLatin1String(field.name));
    connect(edit, &QLineEdit::editingFinished, this, &ServerPanel::edited);
    connect(edit, &QLineEdit::returnPressed, this, &ServerPanel::checkRequested);
    addCaption(layout, tr(field.label), edit, field.row, field.column);
    layout->addWidget(edit, field.row, field.column + 1, 1, field.span);
    m_texts.append(edit);
}

void ServerPanel::addPort(QGridLayout *layout)
{
    m_port = new QSpinBox(this);
    m_port->setObjectName(QStringLiteral("port"));
    m_port->setRange(1, highestPort);
    connect(m_port, &QSpinBox::editingFinished, this, &ServerPanel::edited);
    addCaption(layout, tr("&Port:"), m_port, 0, 2);
    layout->addWidget(m_port, 0, 3, 1, 2);
}

void ServerPanel::addBrowse(QGridLayout *layout)
{
    auto *button = new QPushButton(tr("B&rowse..."), this);
    button->setObjectName(QStringLiteral("browse"));
    connect(button, &QPushButton::clicked, this, &ServerPanel::browse);
    layout->addWidget(button, 2, 4);
}

void ServerPanel::addRight(QGridLayout *layout)
{
    constexpr int column = 5;
    auto *button = new QPushButton(tr("&Check"), this);
    button->setObjectName(QStringLiteral("check"));
    button->setDefault(true);
    connect(button, &QPushButton::clicked, this, &ServerPanel::checkRequested);
    m_light = new Light(this);
    layout->addWidget(m_light, 0, column, 2, 1);
    layout->addWidget(button, 2, column);
    // Wide enough for each of its texts, so that nothing moves when they change.
    layout->setColumnMinimumWidth(column, fontMetrics().horizontalAdvance(QLatin1Char('0')) * 26);
}

void ServerPanel::addCaption(QGridLayout *layout, const QString &text, QWidget *field, int row,
                             int column)
{
    auto *caption = new QLabel(text, this);
    caption->setBuddy(field);
    layout->addWidget(caption, row, column);
}

void ServerPanel::browse()
{
    const QString folder = QFileDialog::getExistingDirectory(this, tr("Save downloads to"),
                                                             m_texts.at(folderField)->text());
    if (folder.isEmpty())
        return;
    m_texts.at(folderField)->setText(QDir::toNativeSeparators(folder));
    Q_EMIT edited();
}
