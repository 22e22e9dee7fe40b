#include "downloadmodel.h"

#include "tooltip.h"

#include <QtCore/QLocale>

#include <algorithm>

namespace {

using State = DownloadModel::State;
using Deed = DownloadModel::Deed;

constexpr int speedMsec = 1000;

/// In the order of State.
struct StateRow {
    const char *text;
    bool active;
    Deed deed;
    const char *deedText;
};

constexpr StateRow states[] = {
    {QT_TRANSLATE_NOOP("DownloadModel", "Not downloaded"), false, Deed::Start,
     QT_TRANSLATE_NOOP("DownloadModel", "Download")},
    {QT_TRANSLATE_NOOP("DownloadModel", "Stopped"), false, Deed::Start,
     QT_TRANSLATE_NOOP("DownloadModel", "Resume")},
    {QT_TRANSLATE_NOOP("DownloadModel", "Failed"), false, Deed::Start,
     QT_TRANSLATE_NOOP("DownloadModel", "Try again")},
    {QT_TRANSLATE_NOOP("DownloadModel", "Waiting"), true, Deed::Abort,
     QT_TRANSLATE_NOOP("DownloadModel", "Abort")},
    {QT_TRANSLATE_NOOP("DownloadModel", "Downloading"), true, Deed::Abort,
     QT_TRANSLATE_NOOP("DownloadModel", "Abort")},
    {QT_TRANSLATE_NOOP("DownloadModel", "Complete"), false, Deed::Start,
     QT_TRANSLATE_NOOP("DownloadModel", "Download again")},
};

/// In the order of Column.
constexpr const char *headers[DownloadModel::ColumnCount] = {
    QT_TRANSLATE_NOOP("DownloadModel", "File"),     QT_TRANSLATE_NOOP("DownloadModel", "Size"),
    QT_TRANSLATE_NOOP("DownloadModel", "Progress"), QT_TRANSLATE_NOOP("DownloadModel", "State"),
    QT_TRANSLATE_NOOP("DownloadModel", "Speed"),    QT_TRANSLATE_NOOP("DownloadModel", "Action"),
};

const StateRow &rowOfState(State state)
{
    return states[static_cast<int>(state)];
}

QVariant alignment(int column)
{
    constexpr Qt::AlignmentFlag alignments[DownloadModel::ColumnCount] = {
        Qt::AlignLeft, Qt::AlignRight, Qt::AlignHCenter,
        Qt::AlignLeft, Qt::AlignRight, Qt::AlignHCenter,
    };
    return QVariant(alignments[column] | Qt::AlignVCenter);
}

} // namespace

DownloadModel::DownloadModel(QObject *parent)
    : QAbstractTableModel(parent)
{
    // A download that stands still sends no signal, but its speed goes down.
    connect(&m_speedTimer, &QTimer::timeout, this, &DownloadModel::measureSpeeds);
    m_speedTimer.setInterval(speedMsec);
}

void DownloadModel::setFiles(const QVector<RemoteFile> &files)
{
    const bool isSame =
        std::equal(files.cbegin(), files.cend(), m_rows.cbegin(), m_rows.cend(),
                   [](const RemoteFile &file, const Row &row) { return file == row.file; });
    // Another check is no reason to lose what is selected and in view.
    if (isSame)
        return;
    QVector<Row> rows;
    for (const RemoteFile &file : files) {
        const auto known = std::find_if(m_rows.cbegin(), m_rows.cend(),
                                        [&file](const Row &row) { return row.file == file; });
        rows.append(known == m_rows.cend() ? Row() : *known);
        rows.last().file = file;
    }
    beginResetModel();
    m_rows = rows;
    endResetModel();
}

void DownloadModel::clearEnded()
{
    QVector<RemoteFile> left;
    for (const Row &row : qAsConst(m_rows)) {
        if (!hasEnded(row.state))
            left.append(row.file);
    }
    setFiles(left);
}

bool DownloadModel::isActive(int row) const
{
    return rowOfState(state(row)).active;
}

Deed DownloadModel::deed(int row) const
{
    return rowOfState(state(row)).deed;
}

QString DownloadModel::deedText(int row) const
{
    return tr(rowOfState(state(row)).deedText);
}

int DownloadModel::activeRowOf(const QString &url) const
{
    const auto row = std::find_if(m_rows.cbegin(), m_rows.cend(), [&url](const Row &each) {
        return each.url == url && rowOfState(each.state).active;
    });
    return row == m_rows.cend() ? -1 : static_cast<int>(row - m_rows.cbegin());
}

void DownloadModel::begin(int row, const QString &url, qint64 bytes)
{
    Row &begun = m_rows[row];
    begun.url = url;
    begun.meter = SpeedMeter(bytes);
    m_speedTimer.start();
    settle(row, State::Waiting, bytes);
}

void DownloadModel::setBytes(int row, qint64 bytes)
{
    m_rows[row].meter.setBytes(bytes);
    settle(row, State::Running, bytes);
}

void DownloadModel::settle(int row, State state, qint64 bytes, const QString &reason)
{
    Row &settled = m_rows[row];
    settled.state = state;
    settled.bytes = std::min(bytes, settled.file.size);
    settled.reason = reason;
    rowChanged(row);
}

int DownloadModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rows.size();
}

int DownloadModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant DownloadModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const Row &row = m_rows.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return text(row, index.column());
    case Qt::ToolTipRole:
        return toolTip(row, index.column());
    case Qt::TextAlignmentRole:
        return alignment(index.column());
    case ProgressRole:
        return static_cast<int>(row.bytes * wholeProgress / row.file.size);
    default:
        return QVariant();
    }
}

QVariant DownloadModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return QVariant();
    if (role == Qt::DisplayRole)
        return tr(headers[section]);
    return role == Qt::TextAlignmentRole ? alignment(section) : QVariant();
}

QString DownloadModel::text(const Row &row, int column) const
{
    const QLocale locale;
    switch (column) {
    case Name:
        return row.file.name;
    case Size:
        return locale.formattedDataSize(row.file.size, 1);
    case Progress:
        return tr("%1 %").arg(row.bytes * 100 / row.file.size);
    case Speed:
        return row.state == State::Running
            ? tr("%1/s").arg(locale.formattedDataSize(static_cast<qint64>(row.meter.speed()), 1))
            : QString();
    case Status:
        return tr(rowOfState(row.state).text);
    default:
        return QString();
    }
}

QVariant DownloadModel::toolTip(const Row &row, int column) const
{
    if (column == Name)
        return toolTipOf(tr("%1 from %2").arg(row.file.name, row.file.path));
    if (column == Progress)
        return tr("%1 of %2 bytes").arg(row.bytes).arg(row.file.size);
    if (column == Status && !row.reason.isEmpty())
        return toolTipOf(row.reason);
    return QVariant();
}

void DownloadModel::rowChanged(int row)
{
    Q_EMIT dataChanged(index(row, 0), index(row, ColumnCount - 1));
}

void DownloadModel::measureSpeeds()
{
    bool isAnyActive = false;
    for (int row = 0; row < m_rows.size(); ++row) {
        if (!isActive(row))
            continue;
        isAnyActive = true;
        m_rows[row].meter.setBytes(m_rows[row].bytes);
        rowChanged(row);
    }
    if (!isAnyActive)
        m_speedTimer.stop();
}
