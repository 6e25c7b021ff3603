#pragma once

#include <QElapsedTimer>
#include <QString>

#include <atomic>
#include <mutex>

namespace Publisher {

/// How far a long piece of work is: files, bytes, rate and time left, on one
/// line of the standard error stream. Quiet when that is no terminal. Any
/// thread may count; the line is drawn a few times a second.
class Progress {
public:
    struct Count {
        qint64 files = 0;
        /// As a total, 0 when nobody knows it: then the line tells neither the whole
        /// nor the time left.
        qint64 bytes = 0;
    };

    /// `visible` is for whoever knows better than the stream, such as tests.
    Progress(QString title, Count total, bool visible = isTerminal());
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    /// Wipes the line.
    ~Progress();

    void addBytes(qint64 bytes);
    void addFile();
    /// For work that grows while it is done.
    void raiseTotal(Count more);
    Count done() const;
    Count total() const;

    /// Whether the standard error stream is a terminal.
    static bool isTerminal();
    /// The line for work that has run for `milliseconds`.
    static QString line(const QString& title, Count done, Count total, qint64 milliseconds);

private:
    void draw();

    QString title;
    bool visible;
    std::atomic<qint64> files{ 0 };
    std::atomic<qint64> bytes{ 0 };
    std::atomic<qint64> totalFiles;
    std::atomic<qint64> totalBytes;
    std::mutex drawing;
    QElapsedTimer clock;
    qint64 lastDrawn = 0;
};

/// "1.5 GiB"; plain bytes below one KiB.
QString humanSize(qint64 bytes);

} // namespace Publisher
