#pragma once

#include "bench/players/transport.h"
#include "bench/players/world.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>

#include <functional>
#include <map>

namespace Players {

/// A player's application folder, as far as servers can tell, and the conversation of
/// its launcher: the text for the window, then two runs side by side, each of which
/// asks for updater, launcher, manifests, and one after the other for every patch
/// file whose copy has not the manifest's hash. A launcher that has been fetched is
/// exchanged, and started again.
class Player {
public:
    /// A file of the folder.
    struct Copy {
        QByteArray md5;
        /// When it was written, by the player's clock; seconds since 1970.
        qint64 date = 0;
        QByteArray text = {};
    };

    struct Ways {
        /// The developer switch is set, so that both manifests count.
        bool isTester = false;
        qint64 secondsAhead = 0;
        /// His updater cannot exchange the launcher, and nothing else comes of a start
        /// that has fetched one.
        bool isStuck = false;
        /// He hangs up in the middle of large patch files.
        bool breaksOff = false;
    };

    Player(World& world, int number, const Ways& ways);

    /// Gives it a launcher that has just been put there, whatever is published.
    void settle();
    bool isStuck() const;
    /// Starts the launcher. `ended` is called when both runs are over.
    void start(std::function<void()> ended);

    /// What is not as these say: a manifest that is another one, and patch files
    /// whose copies have not the hash of that manifest. Empty hash: no such file.
    QStringList differences(
        const QMap<QString, QByteArray>& manifestHashes, const QByteArray& launcherHash) const;

private:
    struct Run {
        /// Kinds whose manifests are still to be asked for.
        QStringList kinds;
        struct Item {
            QUrl url;
            QString place;
            qint64 date;
        };
        QList<Item> queue;
        qsizetype next = 0;
    };

    using Step = std::function<void(const Transport::Answer&)>;

    void ask(int run, const QUrl& url, const QString& name, bool wantsBody, const Step& step);
    /// Whether the answer has become the copy of that name.
    bool write(const QString& name, const Transport::Answer& answer);
    /// By the player's clock.
    qint64 now() const;
    qint64 referenceDate(const QString& name) const;

    void askUpdater(int run);
    void askLauncher(int run);
    void takeLauncher(int run, const Transport::Answer& answer);
    void askManifest(int run);
    void reconcile(int run);
    void queueFile(Run& run, const QString& kind, const PatchManifestEntry& entry);
    void askFile(int run);
    void takeFile(const Run::Item& item, const Transport::Answer& answer);
    void endRun();

    Entries entriesOf(const QString& kind) const;

    World& world;
    int number;
    QStringList kinds;
    Ways ways;
    std::function<void()> over;
    QHash<QString, Copy> copies;
    std::map<int, Run> runs;
    int underWay = 0;
};

} // namespace Players
