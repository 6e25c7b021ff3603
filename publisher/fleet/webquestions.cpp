#include "publisher/fleet/webquestions.h"

#include "publisher/probe/daterules.h"

#include <QEventLoop>

#include <utility>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

QUrl addressOf(const QUrl& base, const QString& path)
{
    QUrl url = base;
    url.setPath(base.path() + path, QUrl::DecodedMode);
    return url;
}

} // namespace

WebQuestions::WebQuestions(
    const FleetServer& asked, const ConnectAddress& by, int secondsOfSilence, TakeAnswer taker)
    : server(asked)
    , silence(secondsOfSilence)
    , take(std::move(taker))
    , inquiry(secondsOfSilence)
{
    inquiry.connectTo(server.address.host(), by);
}

void WebQuestions::setBody(Inquiry::Body wanted)
{
    body = wanted;
}

void WebQuestions::setListener(const std::function<void(qint64)>& bytes)
{
    QObject::connect(&inquiry, &Inquiry::received, &inquiry, bytes);
}

void WebQuestions::ask(const QString& path)
{
    if (isFaulty)
        return;
    inquiry.ask({ addressOf(server.address, path), DateRules::withoutCopy(), body,
                  [this, path](const ProbeAnswer& answer) {
                      if (!fault(answer, silence).isEmpty()) {
                          isFaulty = true;
                          inquiry.forgetTheRest();
                      }
                      take(path, answer);
                  } });
}

void WebQuestions::awaitAnswers()
{
    QEventLoop loop;
    QObject::connect(&inquiry, &Inquiry::finished, &loop, &QEventLoop::quit);
    if (inquiry.isUnderWay())
        loop.exec();
}

ProbeAnswer WebQuestions::answer(
    const FleetServer& server, const ConnectAddress& by, const QString& path, int secondsOfSilence)
{
    ProbeAnswer only;
    WebQuestions questions(
        server, by, secondsOfSilence,
        [&](const QString&, const ProbeAnswer& answer) { only = answer; });
    questions.ask(path);
    questions.awaitAnswers();
    return only;
}

QString WebQuestions::fault(const ProbeAnswer& answer, int secondsOfSilence)
{
    if (!answer.certificateError.isEmpty())
        return u"shows a certificate that launchers do not trust: %1"_s.arg(
            answer.certificateError);
    if (answer.isSilent)
        return u"has said nothing for %1 seconds"_s.arg(secondsOfSilence);
    if (!answer.error.isEmpty())
        return u"cannot be asked: %1"_s.arg(answer.error);
    if (answer.status != HttpStatus::ok)
        return u"answers with status %1"_s.arg(answer.status);
    if (answer.toTheEnd && answer.received < answer.length)
        return u"sends %1 of %2 bytes"_s.arg(answer.received).arg(answer.length);
    return {};
}

} // namespace Publisher
