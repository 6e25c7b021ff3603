#include "publisher/fleet/webquestions.h"

#include "publisher/probe/daterules.h"
#include "publisher/probe/inquiry.h"

#include <QEventLoop>

using namespace Qt::StringLiterals;

namespace Publisher::WebQuestions {

namespace {

QUrl addressOf(const QUrl& base, const QString& path)
{
    QUrl url = base;
    url.setPath(base.path() + path, QUrl::DecodedMode);
    return url;
}

} // namespace

QList<ProbeAnswer>
ask(const FleetServer& server, const ConnectAddress& by, const QStringList& paths,
    int secondsOfSilence, const TakeBytes& take)
{
    QList<ProbeAnswer> answers(paths.size());
    if (paths.isEmpty())
        return answers;
    Inquiry inquiry(secondsOfSilence);
    inquiry.connectTo(server.address.host(), by);
    QEventLoop loop;
    QObject::connect(&inquiry, &Inquiry::finished, &loop, &QEventLoop::quit);
    QObject::connect(&inquiry, &Inquiry::received, &loop, [&](qint64 bytes) {
        if (take)
            take(bytes);
    });
    for (qsizetype i = 0; i < paths.size(); ++i)
        inquiry.ask({ addressOf(server.address, paths.at(i)), DateRules::withoutCopy(),
                      Inquiry::Body::Hash, [&answers, i](const ProbeAnswer& answer) {
                          answers[i] = answer;
                      } });
    loop.exec();
    return answers;
}

QString fault(const ProbeAnswer& answer, int secondsOfSilence)
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
    if (answer.received < answer.length)
        return u"sends %1 of %2 bytes"_s.arg(answer.received).arg(answer.length);
    return {};
}

} // namespace Publisher::WebQuestions
