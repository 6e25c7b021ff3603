#pragma once

#include <QImage>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

/// A screen that exists in memory only, just large enough for the launcher's
/// window, which stands in its upper left corner.
class VirtualDisplay {
public:
    /// Returns when programs can be shown on it.
    VirtualDisplay();
    ~VirtualDisplay();
    VirtualDisplay(const VirtualDisplay&) = delete;
    VirtualDisplay& operator=(const VirtualDisplay&) = delete;

    /// For the environment of programs.
    QString name() const;
    /// What is on the screen.
    QImage picture(const QRect& area) const;
    /// Waits until something is shown there and stays as it is.
    QImage settledPicture(const QRect& area) const;
    /// Waits until the last window has gone.
    void waitUntilBlank(const QRect& area) const;

private:
    /// Where the server keeps what is on the screen.
    QTemporaryDir memory;
    QProcess server;
    QString number;
};
