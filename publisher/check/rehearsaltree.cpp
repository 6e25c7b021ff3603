#include "publisher/check/rehearsaltree.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Publisher {

struct RehearsalTree::Node {
    /// As it was spelt when it was created.
    QString name;
    /// Null for a folder.
    QString digest;
    std::map<QString, std::unique_ptr<Node>> children;

    bool isFolder() const
    {
        return digest.isNull();
    }
};

namespace {

constexpr qsizetype longestName = 255;
constexpr qsizetype longestPosixPath = 4095;
constexpr qsizetype longestWindowsPath = 32'766;

bool isTooLong(const QString& path, QChar separator)
{
    return separator == u'\\' ? path.size() > longestWindowsPath
                              : path.toUtf8().size() > longestPosixPath;
}

/// Neither kind of system can hold such a name.
bool isImpossible(const QString& name)
{
    return name.contains(QChar(u'\0')) || name.toUtf8().size() > longestName;
}

/// "." and ".." resolved in the text alone.
QStringList lexicallyResolved(const QStringList& names)
{
    QStringList resolved;
    for (const QString& name : names) {
        if (name == ".."_L1) {
            if (!resolved.isEmpty())
                resolved.removeLast();
        } else if (name != "."_L1) {
            resolved.append(name);
        }
    }
    return resolved;
}

/// Windows drops blanks and dots at the end of a name and does not look at case.
QString windowsKey(const QString& name)
{
    qsizetype end = name.size();
    while (end > 0 && (name[end - 1] == u'.' || name[end - 1] == u' '))
        --end;
    return name.left(end).toCaseFolded();
}

} // namespace

RehearsalTree::RehearsalTree(QChar pathSeparator)
    : separator(pathSeparator)
    , root(std::make_unique<Node>())
{
}

RehearsalTree::~RehearsalTree() = default;
RehearsalTree::RehearsalTree(RehearsalTree&&) noexcept = default;
RehearsalTree& RehearsalTree::operator=(RehearsalTree&&) noexcept = default;

bool RehearsalTree::isSeparator(QChar character) const
{
    return character == u'/' || character == separator;
}

QString RehearsalTree::key(const QString& name) const
{
    return separator == u'\\' ? windowsKey(name) : name;
}

QStringList RehearsalTree::split(const QString& path, QChar separator)
{
    QString slashes = path;
    if (separator == u'\\')
        slashes.replace(u'\\', u'/');
    return slashes.split(u'/', Qt::SkipEmptyParts);
}

QStringList RehearsalTree::components(const QString& path) const
{
    const QStringList names = split(path, separator);
    return separator == u'\\' ? lexicallyResolved(names) : names;
}

QString RehearsalTree::canonical(const QString& path, QChar separator)
{
    QString text;
    const QStringList names = lexicallyResolved(split(path, separator));
    for (const QString& name : names)
        text += u'/' + (separator == u'\\' ? windowsKey(name) : name);
    return text;
}

/// One component further; false when the way ends there.
bool RehearsalTree::step(std::vector<Node*>& way, const QString& name, bool create) const
{
    if (!way.back()->isFolder())
        return false;
    if (name == "."_L1)
        return true;
    if (name == ".."_L1) {
        if (way.size() > 1)
            way.pop_back();
        return true;
    }
    auto& children = way.back()->children;
    auto found = children.find(key(name));
    if (found == children.end()) {
        if (!create || isImpossible(name))
            return false;
        found = children.emplace(key(name), std::make_unique<Node>()).first;
        found->second->name = name;
    }
    way.push_back(found->second.get());
    return true;
}

std::optional<RehearsalTree::Place> RehearsalTree::locate(const QString& path) const
{
    if (isTooLong(path, separator))
        return std::nullopt;
    QStringList names = components(path);
    const QString last = names.isEmpty() ? u"."_s : names.takeLast();
    std::vector<Node*> way{ root.get() };
    for (const QString& name : std::as_const(names)) {
        if (!step(way, name, false))
            return std::nullopt;
    }
    Node* parent = way.back();
    if (!parent->isFolder())
        return std::nullopt;
    Place place{ .parent = parent, .name = last };
    place.mustBeFolder = !path.isEmpty() && isSeparator(path.back());
    if (step(way, last, false))
        place.node = way.back();
    if (place.node && place.mustBeFolder && !place.node->isFolder())
        return std::nullopt;
    return place;
}

RehearsalTree::Node* RehearsalTree::find(const QString& path) const
{
    const auto place = locate(path);
    return place ? place->node : nullptr;
}

bool RehearsalTree::exists(const QString& path) const
{
    return find(path) != nullptr;
}

bool RehearsalTree::isFolder(const QString& path) const
{
    const Node* node = find(path);
    return node && node->isFolder();
}

std::optional<QString> RehearsalTree::digest(const QString& path) const
{
    const Node* node = find(path);
    return node && !node->isFolder() ? std::optional(node->digest) : std::nullopt;
}

bool RehearsalTree::makeFolder(const QString& path)
{
    const auto place = locate(path);
    if (!place || place->node)
        return false;
    std::vector<Node*> way{ place->parent };
    return step(way, place->name, true);
}

bool RehearsalTree::makePath(const QString& path)
{
    if (isTooLong(path, separator))
        return false;
    std::vector<Node*> way{ root.get() };
    const QStringList names = components(path);
    return std::all_of(
               names.cbegin(), names.cend(),
               [&](const QString& name) { return step(way, name, true); })
        && way.back()->isFolder();
}

bool RehearsalTree::writeFile(const QString& path, const QString& digest)
{
    const auto place = locate(path);
    if (!place || place->mustBeFolder || (place->node && place->node->isFolder()))
        return false;
    std::vector<Node*> way{ place->parent };
    if (!step(way, place->name, true))
        return false;
    way.back()->digest = digest.isNull() ? u""_s : digest;
    return true;
}

bool RehearsalTree::removeFile(const QString& path)
{
    const auto place = locate(path);
    if (!place || !place->node || place->node->isFolder())
        return false;
    place->parent->children.erase(key(place->name));
    return true;
}

QStringList RehearsalTree::removeFolder(const QString& path)
{
    Node* node = find(path);
    if (!node || !node->isFolder())
        return {};
    const QString own = canonical(path, separator);
    QMap<QString, QString> below;
    collect(*node, own, below);
    QStringList gone(below.keyBegin(), below.keyEnd());
    std::reverse(gone.begin(), gone.end());
    node->children.clear();
    // The folder's own path is taken from the text: one that ends in "." or ".."
    // goes as well, and the root itself stays.
    const auto place = locate(own);
    if (!own.isEmpty() && place && place->node == node) {
        place->parent->children.erase(key(place->name));
        gone.append(own);
    }
    return gone;
}

void RehearsalTree::collect(const Node& node, const QString& path, QMap<QString, QString>& found)
{
    for (const auto& [name, child] : node.children) {
        const QString childPath = path + u'/' + child->name;
        found.insert(childPath, child->digest);
        collect(*child, childPath, found);
    }
}

QMap<QString, QString> RehearsalTree::entries() const
{
    QMap<QString, QString> found;
    collect(*root, QString(), found);
    return found;
}

} // namespace Publisher
