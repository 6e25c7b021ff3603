#include "bench/support/objectcensus.h"

#include <QObject>

#include <array>
#include <cstddef>
#include <memory_resource>
#include <mutex>
#include <unordered_set>

// The toolkit's own door for tools that watch objects; no installed header
// declares it.
extern Q_CORE_EXPORT quintptr qtHookData[]; // NOLINT(modernize-avoid-c-arrays)

namespace BenchSupport {

namespace {

constexpr std::size_t hookOfAdding = 3;
constexpr std::size_t hookOfRemoving = 4;

constexpr std::size_t bytesForBooks = 64U << 20U;
constexpr std::size_t expectedObjects = 1U << 17U;

struct Books {
    std::mutex mutex;
    std::pmr::monotonic_buffer_resource memory;
    std::pmr::unsynchronized_pool_resource pool;
    std::pmr::unordered_set<QObject*> alive;

    Books(std::byte* storage, std::size_t size)
        : memory(storage, size, std::pmr::null_memory_resource())
        , pool(&memory)
        , alive(expectedObjects, &pool)
    {
    }
};

Books& books()
{
    static std::array<std::byte, bytesForBooks> storage;
    static Books instance(storage.data(), storage.size());
    return instance;
}

// Both are called from every thread that has objects.

void add(QObject* object)
{
    const std::scoped_lock lock(books().mutex);
    books().alive.insert(object);
}

void remove(QObject* object)
{
    const std::scoped_lock lock(books().mutex);
    books().alive.erase(object);
}

} // namespace

void ObjectCensus::begin()
{
    books();
    qtHookData[hookOfAdding] = reinterpret_cast<quintptr>(&add);
    qtHookData[hookOfRemoving] = reinterpret_cast<quintptr>(&remove);
}

QMap<QByteArray, qint64> ObjectCensus::byClass()
{
    QMap<QByteArray, qint64> counts;
    const std::scoped_lock lock(books().mutex);
    for (const QObject* object : books().alive)
        ++counts[object->metaObject()->className()];
    return counts;
}

} // namespace BenchSupport
