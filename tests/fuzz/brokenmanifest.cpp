#include "tests/fuzz/brokenmanifest.h"

#include "tests/fuzz/mutator.h"

namespace {

class Writer {
public:
    Writer(quint32 series, quint32 index)
        : chance(series, index)
    {
    }

    QByteArray write()
    {
        QByteArray text = chance.below(4) == 0 ? QByteArray() : QByteArray("[General]\n");
        const int entries = chance.below(10);
        text += "numberOfFiles=" + count(entries) + '\n';
        for (int n = 1; n <= entries; ++n)
            text += entry(n);
        chance.damageAtWill(text);
        return text;
    }

private:
    QByteArray count(int entries)
    {
        if (chance.below(20) > 0)
            return QByteArray::number(entries);
        return chance.below(50) == 0 ? QByteArray::number(chance.below(200'000))
                                     : chance.oddValue();
    }

    /// Rarely far away, since all the numbers before it are walked.
    QByteArray number(int n)
    {
        return QByteArray::number(chance.below(5'000) == 0 ? chance.below(300'000) : n);
    }

    QByteArray entry(int n)
    {
        QByteArray rows;
        for (const char* suffix :
             { "", "-save", "-dirOnly", "-pathOffset", "-urlOffset", "-hash", "-x" }) {
            if (chance.below(3) > 0)
                rows += "file" + number(n) + suffix + '=' + chance.oddValue()
                    + (chance.below(20) ? "\n" : "\r\n");
        }
        return rows;
    }

    Mutator chance;
};

} // namespace

QByteArray brokenManifest(quint32 series, quint32 index)
{
    return Writer(series, index).write();
}
