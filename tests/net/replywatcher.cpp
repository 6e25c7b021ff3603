#include "tests/net/replywatcher.h"

#include <QChildEvent>
#include <QCoreApplication>
#include <QNetworkAccessManager>

namespace TestSupport {

ReplyWatcher::ReplyWatcher()
{
    QCoreApplication::instance()->installEventFilter(this);
}

ReplyWatcher::~ReplyWatcher()
{
    QCoreApplication::instance()->removeEventFilter(this);
}

bool ReplyWatcher::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::ChildAdded && qobject_cast<QNetworkAccessManager*>(watched)) {
        // Its class is not known yet: only the base part is constructed.
        created.append(static_cast<QChildEvent*>(event)->child());
        emit issued();
    }
    return QObject::eventFilter(watched, event);
}

QList<QPointer<QNetworkReply>> ReplyWatcher::replies() const
{
    QList<QPointer<QNetworkReply>> found;
    for (const QPointer<QObject>& child : created) {
        if (child == nullptr || qobject_cast<QNetworkReply*>(child))
            found.append(qobject_cast<QNetworkReply*>(child));
    }
    return found;
}

QNetworkReply* ReplyWatcher::reply() const
{
    const QList<QPointer<QNetworkReply>> all = replies();
    return all.size() == 1 ? all.constFirst().data() : nullptr;
}

} // namespace TestSupport
