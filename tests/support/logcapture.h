#pragma once

#include <QStringList>
#include <QtGlobal>

namespace TestSupport {

/// Collects the debug log while it lives, instead of printing it. Lines are the
/// bare messages in order, warnings with "warning: " in front. One at a time.
///
/// The launcher logs from one thread, the one that makes this object. The network
/// library has threads of its own, whose words come in between at any moment.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QStringList lines() const;
    /// What the network library's threads have said.
    QStringList linesOfOtherThreads() const;
    /// The lines that begin with `prefix`, in order.
    QStringList linesStartingWith(const QString& prefix) const;
    void clear();

private:
    static void collect(QtMsgType type, const QMessageLogContext& context, const QString& message);

    QtMessageHandler previous;
};

/// Log lines with every backslash of a path turned into a slash, for tests that
/// are not about the separators; on Windows others are.
QStringList withSlashes(QStringList lines);

} // namespace TestSupport
