#include "publisher/report/keyedhash.h"

#include <QRandomGenerator>
#include <QtEndian>

#include <bit>

namespace Publisher {

namespace {

constexpr std::size_t bytesOfAWord = 8;

struct State {
    std::uint64_t v0;
    std::uint64_t v1;
    std::uint64_t v2;
    std::uint64_t v3;

    void mix()
    {
        v0 += v1;
        v2 += v3;
        v1 = std::rotl(v1, 13) ^ v0;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 = std::rotl(v0, 32);
        v2 += v1;
        v0 += v3;
        v1 = std::rotl(v1, 17) ^ v2;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 = std::rotl(v2, 32);
    }

    void take(std::uint64_t word)
    {
        v3 ^= word;
        mix();
        mix();
        v0 ^= word;
    }
};

std::uint64_t lastWord(std::string_view text)
{
    std::uint64_t word = std::uint64_t{ text.size() } << 56;
    const std::string_view rest = text.substr(text.size() / bytesOfAWord * bytesOfAWord);
    for (std::size_t i = 0; i < rest.size(); ++i)
        word |= std::uint64_t{ static_cast<unsigned char>(rest[i]) } << (8 * i);
    return word;
}

} // namespace

KeyedHash::KeyedHash(const Key& itsKey)
    : key(itsKey)
{
}

KeyedHash KeyedHash::ofOneRun()
{
    QRandomGenerator* const random = QRandomGenerator::system();
    return KeyedHash({ random->generate64(), random->generate64() });
}

std::uint64_t KeyedHash::of(std::string_view text) const
{
    State state{ key[0] ^ 0x736f6d6570736575U, key[1] ^ 0x646f72616e646f6dU,
                 key[0] ^ 0x6c7967656e657261U, key[1] ^ 0x7465646279746573U };
    const std::size_t words = text.size() / bytesOfAWord;
    for (std::size_t i = 0; i < words; ++i)
        state.take(qFromLittleEndian<quint64>(text.data() + i * bytesOfAWord));
    state.take(lastWord(text));
    state.v2 ^= 0xff;
    for (int i = 0; i < 4; ++i)
        state.mix();
    return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

} // namespace Publisher
