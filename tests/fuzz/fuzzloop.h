#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

/// What a fuzzer feeds to what.
struct Fuzzer {
    /// Name of the folder below tests/fuzz/corpus with the inputs to begin with.
    QString corpus;
    /// Makes up an input; the same one for the same series and index.
    std::function<QByteArray(quint32 series, quint32 index)> makeUp;
    /// Has the launcher's code read an input.
    std::function<void(const QByteArray& input, quint32 index)> feed;
};

/// A fuzzer's main program, with an application object at hand. First the corpus
/// as it is, then in turn what is made up and what is damaged of the corpus. An
/// input that crashes or never ends is named, so that `--first N --inputs 1`
/// shows it again. Returns the exit code.
int runFuzzer(const Fuzzer& fuzzer);
