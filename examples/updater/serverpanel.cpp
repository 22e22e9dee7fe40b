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

enum class Kind { Text, ServerPath, File, Folder };

struct TextField {
    const char *name;
    const char *label;
    QString ServerSettings::*member;
    Kind kind;
    int row;
    int column;
    int span;
    /// Of a file or folder: the button that looks for it, and the title of the dialog.
    const char *browse = nullptr;
    const char *title = nullptr;
};

constexpr TextField fields[] = {
    {"host", QT_TRANSLATE_NOOP("ServerPanel", "&Host:"), &ServerSettings::host, Kind::Text, 0, 0,
     1},
    {"caFile", QT_TRANSLATE_NOOP("ServerPanel", "CA file (PE&M):"), &ServerSettings::caFile,
     Kind::File, 0, 4, 1, QT_TRANSLATE_NOOP("ServerPanel", "&Browse..."),
     QT_TRANSLATE_NOOP("ServerPanel", "Certificates of the authorities to trust")},
    {"definitionPath", QT_TRANSLATE_NOOP("ServerPanel", "&Definition:"),
     &ServerSettings::definitionPath, Kind::ServerPath, 1, 0, 3},
    {"indexPath", QT_TRANSLATE_NOOP("ServerPanel", "&Index:"), &ServerSettings::indexPath,
     Kind::ServerPath, 1, 4, 2},
    {"changeLogPath", QT_TRANSLATE_NOOP("ServerPanel", "Ch&ange log:"),
     &ServerSettings::changeLogPath, Kind::ServerPath, 2, 0, 3},
    {"folder", QT_TRANSLATE_NOOP("ServerPanel", "&Save to:"), &ServerSettings::folder, Kind::Folder,
     2, 4, 1, QT_TRANSLATE_NOOP("ServerPanel", "B&rowse..."),
     QT_TRANSLATE_NOOP("ServerPanel", "Save downloads to")},
};

bool isLocal(const TextField &field)
{
    return field.kind == Kind::File || field.kind == Kind::Folder;
}

// The library needs absolute paths.
QString absolutePath(const QString &path)
{
    const bool isRelative = !path.isEmpty() && !path.startsWith(QLatin1Char('/'));
    return isRelative ? QLatin1Char('/') + path : path;
}

QString shownText(const TextField &field, const QString &value)
{
    return isLocal(field) ? QDir::toNativeSeparators(value) : value;
}

QString valueOf(const TextField &field, const QString &shown)
{
    const QString text = shown.trimmed();
    if (field.kind == Kind::ServerPath)
        return absolutePath(text);
    return isLocal(field) ? QDir::fromNativeSeparators(text) : text;
}

} // namespace

ServerPanel::ServerPanel(QWidget *parent)
    : QWidget(parent)
{
    auto *layout = new QGridLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setColumnStretch(1, 1);
    layout->setColumnStretch(5, 1);
    // Tab goes from field to field in the order in which they are made.
    for (int number = 0; number < static_cast<int>(std::size(fields)); ++number) {
        addField(layout, number);
        if (number == 0)
            addPort(layout);
    }
    addRight(layout);
}

ServerSettings ServerPanel::settings() const
{
    ServerSettings settings;
    for (int i = 0; i < m_texts.size(); ++i)
        settings.*fields[i].member = valueOf(fields[i], m_texts.at(i)->text());
    settings.port = m_port->value();
    return settings;
}

void ServerPanel::setSettings(const ServerSettings &settings)
{
    for (int i = 0; i < m_texts.size(); ++i)
        m_texts.at(i)->setText(shownText(fields[i], settings.*fields[i].member));
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
    if (field.kind == Kind::File)
        edit->setPlaceholderText(tr("The authorities of the system"));
    if (field.browse)
        addBrowse(layout, number);
}

void ServerPanel::addPort(QGridLayout *layout)
{
    m_port = new QSpinBox(this);
    m_port->setObjectName(QStringLiteral("port"));
    m_port->setRange(1, highestPort);
    connect(m_port, &QSpinBox::editingFinished, this, &ServerPanel::edited);
    addCaption(layout, tr("&Port:"), m_port, 0, 2);
    layout->addWidget(m_port, 0, 3);
}

void ServerPanel::addBrowse(QGridLayout *layout, int number)
{
    const TextField &field = fields[number];
    auto *button = new QPushButton(tr(field.browse), this);
    button->setObjectName(QLatin1String(field.name) + QLatin1String("Browse"));
    connect(button, &QPushButton::clicked, this, [this, number] { browse(number); });
    layout->addWidget(button, field.row, field.column + 1 + field.span);
}

void ServerPanel::addRight(QGridLayout *layout)
{
    constexpr int column = 7;
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

void ServerPanel::browse(int number)
{
    const TextField &field = fields[number];
    QLineEdit *edit = m_texts.at(number);
    const QString found = field.kind == Kind::Folder
        ? QFileDialog::getExistingDirectory(this, tr(field.title), edit->text())
        : QFileDialog::getOpenFileName(this, tr(field.title), edit->text());
    if (found.isEmpty())
        return;
    edit->setText(QDir::toNativeSeparators(found));
    Q_EMIT edited();
}
