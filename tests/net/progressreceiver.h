#pragma once

#include <QList>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QStringList>

namespace TestSupport {

/// Stands in for the main window while something is downloaded and records
/// what it is told.
class ProgressReceiver : public QObject {
    Q_OBJECT

public:
    /// File names for which the display was shown, in order.
    QStringList labels;
    /// How often the display was hidden.
    int hidden = 0;
    /// Received and total bytes of every update, in order.
    QList<QPair<qint64, qint64>> updates;
    /// Everything in order: "show NAME", "hide".
    QStringList events;
    /// Who showed the display last; nothing else hands a downloader out.
    QPointer<QObject> shownBy;
    /// Who sent the last update, the running reply.
    QPointer<QObject> updatedBy;

public slots:
    void setDownloadLabelAndProgressBar(QString name);
    void hideDownloadLabelAndProgressBar();
    void updateProgressBar(qint64 received, qint64 total);

signals:
    /// Sent inside the three slots, for tests that hook in there.
    void shown(QObject* sender);
    void hid();
    void updated(qint64 received, qint64 total);
};

} // namespace TestSupport
