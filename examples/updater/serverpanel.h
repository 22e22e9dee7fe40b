#ifndef SERVERPANEL_H
#define SERVERPANEL_H

#include "serversettings.h"

#include <QtCore/QVector>
#include <QtWidgets/QWidget>

QT_BEGIN_NAMESPACE
class QGridLayout;
class QLineEdit;
class QSpinBox;
QT_END_NAMESPACE

class Light;

/// The fields for the server and its paths, with the light and the button beside them.
class ServerPanel : public QWidget {
    Q_OBJECT

public:
    explicit ServerPanel(QWidget *parent = nullptr);

    ServerSettings settings() const;
    void setSettings(const ServerSettings &settings);
    Light *light() const { return m_light; }

Q_SIGNALS:
    /// The user has finished changing a field.
    void edited();
    void checkRequested();

private:
    void addField(QGridLayout *layout, int number);
    void addPort(QGridLayout *layout);
    void addBrowse(QGridLayout *layout, int number);
    void addRight(QGridLayout *layout);
    void addCaption(QGridLayout *layout, const QString &text, QWidget *field, int row, int column);
    void browse(int number);

    /// In the order of the fields' table.
    QVector<QLineEdit *> m_texts;
    QSpinBox *m_port = nullptr;
    Light *m_light = nullptr;
};

#endif // SERVERPANEL_H
