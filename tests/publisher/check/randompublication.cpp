#include "tests/publisher/check/randompublication.h"

#include "tests/support/applicationfolder.h"

#include <QUrl>

namespace {

// Few names and folders, so that they meet often.
const QStringList names{ "a.mpq", "b.mpq",     "c.mpq",  "Data",      "deDE",     "sub",
                         "x y",   "ä, ö; ü.@", "100%.x", "a.mpq-new", "sub/a.mpq" };
const QStringList strangeNames{ "", ".", "a.mpq/", "@x", "AddOns" };
const QStringList offsets{ "Data", "Data/", "Data/deDE", "sub", "Interface/AddOns", "" };
const QStringList strangeOffsets{ ".",          "/Data",    "../other",   "a.mpq",
                                  "Data//deDE", "./Data/.", "sub/../sub", "Data/a.mpq" };

/// Quoted as the settings layer wants it.
QString quoted(QString value)
{
    return '"' + value.replace('\\', "\\\\").replace('"', "\\\"") + '"';
}

QString word(bool value)
{
    return value ? "true" : "false";
}

} // namespace

RandomPublication::RandomPublication(unsigned seed)
    : random(seed)
{
    makeRealms();
    developer = chance(50);
    live = makeManifest("live");
    test = makeManifest("test");
    makeDisk();
}

int RandomPublication::below(int bound)
{
    return static_cast<int>(random() % static_cast<unsigned>(bound));
}

bool RandomPublication::chance(int percent)
{
    return below(100) < percent;
}

QString RandomPublication::oneOf(const QStringList& choices)
{
    return choices.at(below(static_cast<int>(choices.size())));
}

void RandomPublication::makeRealms()
{
    const QStringList clients{ TestSupport::ApplicationFolder::path("clients/A"), "/clients/B",
                               "/clients/C", "/clients/C" };
    const int count = below(5);
    for (int r = 0; r < count; ++r)
        realms.append({ chance(18) ? QString() : oneOf(clients), chance(40) });
}

QStringList RandomPublication::makeManifest(const QString& kind)
{
    if (chance(5))
        return {};
    const int count = below(13);
    QStringList rows;
    for (int n = 1; n <= count; ++n) {
        if (chance(5))
            continue;
        const Entry entry = makeEntry();
        addRows(rows, kind, n, entry);
        if (!entry.save)
            removals.append({ n, entry.offset + '/' + entry.name, entry.dirOnly });
    }
    const int announced = chance(80) ? count : std::max(0, count + below(5) - 2);
    if (!chance(3))
        rows.prepend("numberOfFiles=" + QString::number(announced));
    rows.append("; the end");
    return rows;
}

RandomPublication::Entry RandomPublication::makeEntry()
{
    Entry entry;
    entry.name = oneOf(chance(8) ? strangeNames : names);
    entry.offset = oneOf(chance(15) ? strangeOffsets : offsets);
    entry.save = !chance(30);
    entry.dirOnly = chance(45);
    // A removal of everything below the root would take the test with it.
    const bool wholeFolder = entry.offset.isEmpty() || entry.offset == ".";
    if (!entry.save && entry.dirOnly && wholeFolder)
        entry.offset = "Data";
    return entry;
}

void RandomPublication::addRows(QStringList& rows, const QString& kind, int n, const Entry& entry)
{
    const QString key = "file" + QString::number(n);
    if (!entry.name.isEmpty())
        rows.append(key + '=' + quoted(entry.name));
    if (!entry.save || chance(20))
        rows.append(key + "-save=" + word(entry.save));
    if (entry.dirOnly || chance(20))
        rows.append(key + "-dirOnly=" + word(entry.dirOnly));
    // Without the row the launcher takes "Data/".
    if (entry.offset != "Data/")
        rows.append(key + "-pathOffset=" + quoted(entry.offset));
    if (entry.save && !entry.dirOnly)
        addFileRows(rows, kind, key, entry);
}

void RandomPublication::addFileRows(
    QStringList& rows, const QString& kind, const QString& key, const Entry& entry)
{
    const QString urlOffset = oneOf({ "", "Data", "packs/über uns", "a%20b" });
    if (!urlOffset.isEmpty())
        rows.append(key + "-urlOffset=" + quoted(urlOffset));
    const QByteArray content = someContent(entry.name);
    rows.append(key + "-hash=" + hashRow(content));
    const QUrl url(
        "https://server/wow-client-patch/" + kind + '/' + urlOffset + '/' + entry.name,
        QUrl::TolerantMode);
    // Nobody can ask for "."; the network layer takes it out of the address.
    if (entry.name != "." && !chance(8))
        served.insert(url.path(QUrl::FullyEncoded).toUtf8(), chance(5) ? QByteArray() : content);
}

QString RandomPublication::hashRow(const QByteArray& content)
{
    const QString hash = TestSupport::md5(content);
    if (chance(6))
        return hash.toUpper();
    return chance(6) ? QString() : hash;
}

void RandomPublication::makeDisk()
{
    QStringList roots{ TestSupport::ApplicationFolder::path("ClientDataStorage/live/"),
                       TestSupport::ApplicationFolder::path("ClientDataStorage/test/"),
                       TestSupport::ApplicationFolder::path("clients/other/"),
                       "/",
                       "/live/",
                       "/test/",
                       "/clients/other/" };
    for (const RandomRealm& realm : std::as_const(realms)) {
        const QString client = realm.clientPath + '/';
        roots += { client, client, client, client + "live/", client + "test/" };
        if (chance(90))
            folders.append(client + "Data");
    }
    const int count = below(20);
    for (int i = 0; i < count; ++i) {
        // One after the other: compilers differ in which side of a sum they work out first.
        const QString name = oneOf(names);
        const QString offset = oneOf(offsets);
        const QString path = oneOf(roots) + offset + '/' + name;
        if (chance(30))
            folders.append(path);
        else
            files.insert(path, someContent(name));
    }
    for (const Removal& removal : std::as_const(removals))
        makeRemovable(removal);
}

QByteArray RandomPublication::someContent(const QString& name)
{
    return "content " + QByteArray::number(below(6)) + " of " + name.toUtf8();
}

/// Something where the removal looks while the launcher reconciles, which is
/// below the root for a realm that the player lacks.
void RandomPublication::makeRemovable(const Removal& removal)
{
    if (chance(50))
        return;
    QString client;
    if (removal.number <= realms.size())
        client = realms.at(removal.number - 1).clientPath;
    if (removal.dirOnly)
        client += chance(50) ? "/live" : "/test";
    const QString path = client + '/' + removal.path;
    files.insert(removal.dirOnly ? path + "/old" : path, someContent("old"));
}
