#pragma once

#include <QList>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>

namespace TestSupport {

/// Sees every network request of the process from the moment it is issued.
/// Downloaders hide their manager and their reply; this is how a test gets at
/// them.
class ReplyWatcher : public QObject {
    Q_OBJECT

public:
    ReplyWatcher();
    ~ReplyWatcher() override;

    /// The replies created while this object lives, in order; null when gone.
    QList<QPointer<QNetworkReply>> replies() const;
    /// The only reply so far, null unless there is exactly one.
    QNetworkReply* reply() const;

    bool eventFilter(QObject* watched, QEvent* event) override;

signals:
    /// Sent while the reply is still being constructed.
    void issued();

private:
    QList<QPointer<QObject>> created;
};

} // namespace TestSupport
