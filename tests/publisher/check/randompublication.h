#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <random>

/// A realm entry of a made-up player.
struct RandomRealm {
    QString clientPath;
    bool testRealm;
};

/// A publication and a player as no sane admin would make them, the same for
/// the same seed: removals at all numbers, gaps, missing names and hashes,
/// folders that come late or never, names that meet in one place.
class RandomPublication {
public:
    explicit RandomPublication(unsigned seed);

    QList<RandomRealm> realms;
    bool developer = false;
    /// Rows of "patch.ini" and "patchTest.ini"; no rows at all for a manifest
    /// that players do not have.
    QStringList live;
    QStringList test;
    /// What the server holds, by path and as it stands in the address.
    QHash<QByteArray, QByteArray> served;
    /// What lies on the player's disk before the run, by absolute path.
    QMap<QString, QByteArray> files;
    QStringList folders;

private:
    struct Entry {
        QString name;
        QString offset;
        bool save = true;
        bool dirOnly = false;
    };

    /// What a removal is about, for a disk on which it finds something.
    struct Removal {
        int number;
        QString path;
        bool dirOnly;
    };

    int below(int bound);
    bool chance(int percent);
    QString oneOf(const QStringList& choices);

    void makeRealms();
    QStringList makeManifest(const QString& kind);
    Entry makeEntry();
    void addRows(QStringList& rows, const QString& kind, int n, const Entry& entry);
    void
    addFileRows(QStringList& rows, const QString& kind, const QString& key, const Entry& entry);
    QString hashRow(const QByteArray& content);
    void makeDisk();

    QByteArray someContent(const QString& name);
    void makeRemovable(const Removal& removal);

    std::mt19937 random;
    QList<Removal> removals;
};
