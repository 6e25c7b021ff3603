#pragma once

#include "publisher/fleet/fleetfile.h"
#include "publisher/probe/inquiry.h"

#include <QString>
#include <QUrl>

#include <functional>

namespace Publisher {

/// What players are given by one server of several, asked by one of its own addresses.
/// Answers come in while the calling thread deals with events.
class WebQuestions {
public:
    using TakeAnswer = std::function<void(const QString& path, const ProbeAnswer&)>;

    /// The server must outlive the object. `take` gets each answer.
    WebQuestions(
        const FleetServer& server, const ConnectAddress& by, int secondsOfSilence, TakeAnswer take);

    /// The answers to all questions are read so.
    void setBody(Inquiry::Body body);
    /// Is told how much of a body has come.
    void setListener(const std::function<void(qint64)>& bytes);

    void ask(const QString& path);
    /// Returns when everything is answered. After an answer that is no file nothing more
    /// is asked.
    void awaitAnswers();

    /// The answer to a single question, read to its end.
    static ProbeAnswer answer(
        const FleetServer& server, const ConnectAddress& by, const QString& path,
        int secondsOfSilence);
    /// Why the answer is no file, as the rest of a sentence; empty when it is one.
    static QString fault(const ProbeAnswer& answer, int secondsOfSilence);

private:
    const FleetServer& server;
    int silence;
    TakeAnswer take;
    Inquiry::Body body = Inquiry::Body::Hash;
    Inquiry inquiry;
    bool isFaulty = false;
};

} // namespace Publisher
