#include "tests/net/progressreceiver.h"

namespace TestSupport {

void ProgressReceiver::setDownloadLabelAndProgressBar(QString name)
{
    labels.append(name);
    events.append("show " + name);
    shownBy = sender();
    emit shown(sender());
}

void ProgressReceiver::hideDownloadLabelAndProgressBar()
{
    ++hidden;
    events.append("hide");
    emit hid();
}

void ProgressReceiver::updateProgressBar(qint64 received, qint64 total)
{
    updates.append({ received, total });
    updatedBy = sender();
    emit updated(received, total);
}

} // namespace TestSupport
