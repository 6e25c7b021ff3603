#include "publisher/fleet/lastnamed.h"

#include "publisher/common/filework.h"
#include "publisher/common/serverlayout.h"

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace Publisher {

LastNamed::LastNamed(const QString& tree)
    : path(tree + u'/' + ServerLayout::historyFolder() + u"/last-named"_s)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    for (const QString& line : lines) {
        const QDateTime date = QDateTime::fromString(line.section(u' ', 0, 0), Qt::ISODate);
        if (date.isValid())
            dates.insert(line.section(u' ', 1), date);
    }
}

void LastNamed::note(const QSet<QString>& present, const QSet<QString>& named, const QDateTime& now)
{
    dates.removeIf([&](const auto& date) { return !present.contains(date.key()); });
    for (const QString& file : present) {
        if (named.contains(file) || !dates.contains(file))
            dates.insert(file, now);
    }
}

Problem LastNamed::store() const
{
    QStringList lines;
    for (auto date = dates.begin(); date != dates.end(); ++date)
        lines.append(date->toUTC().toString(Qt::ISODate) + u' ' + date.key() + u'\n');
    lines.sort();
    const QString draft = FileWork::draftOf(path);
    return inOrder(
        [&] { return FileWork::createFolder(QFileInfo(path).path()); },
        [&] { return FileWork::write(draft, lines.join(QString()).toUtf8()); },
        [&] { return FileWork::replace(draft, path); });
}

QSet<QString> LastNamed::unnamedFor(int days, const QDateTime& now) const
{
    QSet<QString> found;
    for (auto date = dates.begin(); date != dates.end(); ++date) {
        if (date->addDays(days) <= now)
            found.insert(date.key());
    }
    return found;
}

} // namespace Publisher
