#ifndef TARVISNET_TESTS_SMALLDISK_H
#define TARVISNET_TESTS_SMALLDISK_H

#include <QtCore/QTemporaryDir>

/// A file system of a few pages, that nobody but this process sees. It is gone with this object.
class SmallDisk {
public:
    /// To be called before there is any thread: takes a view of the file systems of our own, by
    /// way of a user name space when we are not root. It is fatal when neither is permitted.
    static void prepare();

    explicit SmallDisk(qint64 bytes);
    ~SmallDisk();

    QString path(const QString &name) const { return m_directory.filePath(name); }
    void resize(qint64 bytes);
    /// From now on nothing can be written or deleted on it, not even by root.
    void protect();
    /// The same for one of its folders, in this view of the file systems.
    static void protectFolder(const QString &path);

private:
    Q_DISABLE_COPY(SmallDisk)

    void mountWith(unsigned long flags, const QByteArray &options);

    QTemporaryDir m_directory;
};

#endif // TARVISNET_TESTS_SMALLDISK_H
