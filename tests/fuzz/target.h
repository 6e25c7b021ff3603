#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>

// What a fuzz target consists of, with the names that libFuzzer asks for. Where the
// compiler brings no libFuzzer, the main program of replay.cpp calls them.

/// Called once, before the first input. A target whose code needs no application
/// object has one already.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
/// Has the code under test read one input. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Fuzz {

QByteArray toBytes(const std::uint8_t* data, std::size_t size);

/// Broken values make the toolkit complain a million times.
void silenceToolkit();

/// While it lives, a file with the input as its content. Every input has a path of
/// its own: the settings layer keeps what it has read by path.
class InputFile {
public:
    explicit InputFile(const QByteArray& content);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    QString path() const;

private:
    QString filePath;
};

} // namespace Fuzz
