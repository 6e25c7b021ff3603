#pragma once

#include <QByteArray>
#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>
#include <unordered_map>

namespace Players {

/// Requests of any number of players in one thread, each over a fresh TLS 1.2
/// connection without a session to resume, as launchers make them. libcurl does the
/// work.
class Transport {
public:
    struct Question {
        QUrl url;
        /// "HOST:PORT" that is asked in place of the one in the address; empty for
        /// that one. Host header and certificate stay those of the address.
        QByteArray server = {};
        /// Seconds since 1970, in UTC.
        qint64 ifModifiedSince = 0;
        /// Else only hash and length are kept.
        bool wantsBody = false;
        /// Address of this machine to ask from; empty for whatever the system takes.
        QByteArray from = {};
        /// Hangs up after so many bytes; 0 for never.
        qint64 breaksOffAfter = 0;
    };

    struct Answer {
        /// 0 when there was none.
        long status = 0;
        /// Came to its end, by its own length.
        bool isWhole = false;
        qint64 length = 0;
        /// In lower-case hexadecimal, of what came.
        QByteArray md5;
        QByteArray body;
        /// In the library's words; empty when all went well.
        QByteArray error;
    };

    using Handler = std::function<void(const Answer&)>;

    /// `authority` is a file of certificates to trust.
    explicit Transport(QByteArray authority);
    ~Transport();
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    /// The handler may ask, and cancel.
    void ask(const Question& question, Handler handler, int owner);
    /// Breaks off what this owner has asked; no handler is called.
    void cancel(int owner);
    /// Works until something has happened, for so long at most.
    void turn(std::chrono::milliseconds limit);

private:
    struct Exchange;

    void conclude(void* handle, int result);

    QByteArray authorityFile;
    void* multi;
    std::unordered_map<void*, std::unique_ptr<Exchange>> exchanges;
};

} // namespace Players
