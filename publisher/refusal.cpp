#include "publisher/refusal.h"

#include "publisher/output.h"

using namespace Qt::StringLiterals;

void showRefusals(const QList<Refusal>& refusals, Output& output)
{
    QJsonArray array;
    for (const Refusal& refusal : refusals) {
        output.line(u"%1: %2 [%3]"_s.arg(refusal.path, refusal.reason, refusal.id));
        array.append(QJsonObject{ { u"id"_s, refusal.id },
                                  { u"path"_s, refusal.path },
                                  { u"reason"_s, refusal.reason } });
    }
    output.line(u"Nothing has been published."_s);
    output.set(u"refusals"_s, array);
}
