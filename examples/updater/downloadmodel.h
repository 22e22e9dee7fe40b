#ifndef DOWNLOADMODEL_H
#define DOWNLOADMODEL_H

#include "remotefile.h"
#include "speedmeter.h"

#include <QtCore/QAbstractTableModel>
#include <QtCore/QTimer>

/// The downloads: what there is to download, and how far each has got.
class DownloadModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Column : int { Name, Size, Progress, Status, Speed, Action, ColumnCount };
    enum class State { Absent, Stopped, Failed, Waiting, Running, Complete };
    Q_ENUM(State)
    /// What the user may do with a row.
    enum class Deed { Start, Abort };
    /// Of the column Progress: how much is there, from 0 to #wholeProgress.
    static constexpr int ProgressRole = Qt::UserRole;
    static constexpr int wholeProgress = 1000;

    explicit DownloadModel(QObject *parent = nullptr);

    /// Replaces the rows; those of files that stay the same keep their state.
    void setFiles(const QVector<RemoteFile> &files);
    /// Takes out the rows whose download has ended.
    void clearEnded();
    /// Well or not.
    static bool hasEnded(State state) { return state == State::Failed || state == State::Complete; }
    const RemoteFile &file(int row) const { return m_rows.at(row).file; }
    State state(int row) const { return m_rows.at(row).state; }
    /// Whether the library has the row's request.
    bool isActive(int row) const;
    Deed deed(int row) const;
    QString deedText(int row) const;

    /// The row whose request has the URL text \a url and is active, -1 if there is none.
    int activeRowOf(const QString &url) const;

    /// The request of the row is about to be handed to the library; \a bytes are there already.
    void begin(int row, const QString &url, qint64 bytes);
    void setBytes(int row, qint64 bytes);
    /// \a reason is shown as the tool tip of the state.
    void settle(int row, State state, qint64 bytes, const QString &reason = QString());

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

private:
    struct Row {
        RemoteFile file;
        State state = State::Absent;
        qint64 bytes = 0;
        SpeedMeter meter;
        QString url;
        QString reason;
    };

    QString text(const Row &row, int column) const;
    QVariant toolTip(const Row &row, int column) const;
    void rowChanged(int row);
    void measureSpeeds();

    QVector<Row> m_rows;
    QTimer m_speedTimer;
};

#endif // DOWNLOADMODEL_H
