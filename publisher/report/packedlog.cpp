#include "publisher/report/packedlog.h"

#ifdef HALDEN_HAS_ZLIB
#define ZLIB_CONST
#include <zlib.h>
#endif
#ifdef HALDEN_HAS_ZSTD
#include <zstd.h>
#endif

#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace Publisher {

namespace {

constexpr std::size_t packedAtOnce = std::size_t{ 256 } << 10;

/// Reads packed bytes and hands out unpacked ones.
class Unpacker : public LogSource {
public:
    explicit Unpacker(std::unique_ptr<LogSource> log)
        : packed(std::move(log))
        , buffer(packedAtOnce)
    {
    }

    std::size_t read(std::span<char> target, Problem& problem) override
    {
        std::size_t got = 0;
        while (got == 0 && !isOver && !problem) {
            if (waiting.empty())
                refill(problem);
            if (!problem)
                got = unpack(target, problem);
        }
        return got;
    }

protected:
    /// Takes from `waiting`, which is empty at the end, and returns how much has come
    /// of it.
    virtual std::size_t unpack(std::span<char> target, Problem& problem) = 0;

    static Problem broken()
    {
        return u"it is damaged: from some place on it cannot be unpacked"_s;
    }

    std::span<const char> waiting;
    bool isOver = false;

private:
    void refill(Problem& problem)
    {
        waiting = std::span(buffer).first(packed->read(buffer, problem));
    }

    std::unique_ptr<LogSource> packed;
    std::vector<char> buffer;
};

#ifdef HALDEN_HAS_ZLIB

class Gzip : public Unpacker {
public:
    explicit Gzip(std::unique_ptr<LogSource> log)
        : Unpacker(std::move(log))
    {
        constexpr int gzipOnly = 16;
        isReady = inflateInit2(&stream, MAX_WBITS + gzipOnly) == Z_OK;
    }

    ~Gzip() override
    {
        inflateEnd(&stream);
    }

    Gzip(const Gzip&) = delete;
    Gzip& operator=(const Gzip&) = delete;

protected:
    std::size_t unpack(std::span<char> target, Problem& problem) override
    {
        if (!isReady) {
            problem = u"there is no memory to unpack it"_s;
            return 0;
        }
        // It may end between two texts, and anywhere while it is being written.
        const bool hasEnded = waiting.empty();
        stream.next_in = reinterpret_cast<const Bytef*>(waiting.data());
        stream.avail_in = static_cast<uInt>(waiting.size());
        stream.next_out = reinterpret_cast<Bytef*>(target.data());
        stream.avail_out = static_cast<uInt>(target.size());
        const int result = inflate(&stream, Z_NO_FLUSH);
        waiting = waiting.last(stream.avail_in);
        const std::size_t size = target.size() - stream.avail_out;
        isOver = hasEnded && size == 0;
        if (result == Z_STREAM_END)
            inflateReset(&stream);
        else if (result != Z_OK && result != Z_BUF_ERROR)
            problem = broken();
        return size;
    }

private:
    z_stream stream{};
    bool isReady = false;
};

#endif
#ifdef HALDEN_HAS_ZSTD

class Zstandard : public Unpacker {
public:
    explicit Zstandard(std::unique_ptr<LogSource> log)
        : Unpacker(std::move(log))
        , stream(ZSTD_createDStream())
    {
    }

    ~Zstandard() override
    {
        ZSTD_freeDStream(stream);
    }

    Zstandard(const Zstandard&) = delete;
    Zstandard& operator=(const Zstandard&) = delete;

protected:
    std::size_t unpack(std::span<char> target, Problem& problem) override
    {
        ZSTD_inBuffer input{ waiting.data(), waiting.size(), 0 };
        ZSTD_outBuffer output{ target.data(), target.size(), 0 };
        const bool hasEnded = waiting.empty();
        const std::size_t result = ZSTD_decompressStream(stream, &output, &input);
        waiting = waiting.subspan(input.pos);
        if (ZSTD_isError(result) != 0)
            problem = broken();
        isOver = hasEnded && output.pos == 0;
        return output.pos;
    }

private:
    ZSTD_DStream* stream;
};

#endif

} // namespace

namespace PackedLog {

bool isGzip(QByteArrayView beginning)
{
    return beginning.startsWith("\x1f\x8b");
}

bool isZstandard(QByteArrayView beginning)
{
    return beginning.startsWith("\x28\xb5\x2f\xfd");
}

std::unique_ptr<LogSource> gzip([[maybe_unused]] std::unique_ptr<LogSource> packed)
{
#ifdef HALDEN_HAS_ZLIB
    return std::make_unique<Gzip>(std::move(packed));
#else
    return nullptr;
#endif
}

std::unique_ptr<LogSource> zstandard([[maybe_unused]] std::unique_ptr<LogSource> packed)
{
#ifdef HALDEN_HAS_ZSTD
    return std::make_unique<Zstandard>(std::move(packed));
#else
    return nullptr;
#endif
}

} // namespace PackedLog

} // namespace Publisher
