#ifndef DOWNLOADTABLE_H
#define DOWNLOADTABLE_H

#include <QtWidgets/QTableView>

class DownloadModel;

/// The downloads, each with a button to start, resume or abort it. Return and Space do what the
/// button of the current row does.
class DownloadTable : public QTableView {
    Q_OBJECT

public:
    explicit DownloadTable(DownloadModel *model, QWidget *parent = nullptr);

    /// Does what can be done with the current row.
    void doCurrent();

Q_SIGNALS:
    void startRequested(int row);
    void abortRequested(int row);

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    void makeColumns();
    void makeButtons();
    void updateButtons(const QModelIndex &first, const QModelIndex &last);
    void doRow(int row);

    DownloadModel *const m_model;
};

#endif // DOWNLOADTABLE_H
