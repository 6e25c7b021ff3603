#include "tests/support/applicationfolder.h"
#include "tests/support/testmain.h"
#include "updater/platform.h"
#include "updater/processid.h"
#include "updater/programheader.h"

#include <QRandomGenerator>

#include <array>
#include <optional>

using Updater::ProgramFormat;
using Updater::ProgramKind;

namespace {

/// A number into a header, little end first.
void put(QByteArray& bytes, qsizetype offset, quint64 value, int width)
{
    for (int n = 0; n < width; ++n)
        bytes[offset + n] = static_cast<char>(value >> (8 * n));
}

constexpr int linuxMachine = 62;
constexpr std::array<std::uint16_t, 1> linuxMachines{ linuxMachine };
constexpr ProgramKind linuxProgram{ ProgramFormat::Elf, linuxMachines };

/// The smallest file with all the headers of a 64-bit Linux program, and a
/// segment that is all of it.
QByteArray elf64()
{
    QByteArray file(64 + 56 + 64, '\0');
    file.replace(
        0, 6,
        QByteArray(
            "\x7F"
            "ELF\2\1",
            6));
    put(file, 16, 3, 2);
    put(file, 18, linuxMachine, 2);
    put(file, 32, 64, 8);
    put(file, 40, 120, 8);
    put(file, 54, 56, 2);
    put(file, 56, 1, 2);
    put(file, 58, 64, 2);
    put(file, 60, 1, 2);
    put(file, 64 + 32, quint64(file.size()), 8);
    return file;
}

QByteArray elf32()
{
    QByteArray file(52 + 32 + 40, '\0');
    file.replace(
        0, 6,
        QByteArray(
            "\x7F"
            "ELF\1\1",
            6));
    put(file, 16, 2, 2);
    put(file, 18, linuxMachine, 2);
    put(file, 28, 52, 4);
    put(file, 32, 84, 4);
    put(file, 42, 32, 2);
    put(file, 44, 1, 2);
    put(file, 46, 40, 2);
    put(file, 48, 1, 2);
    put(file, 52 + 16, quint64(file.size()), 4);
    return file;
}

/// A Windows program of 64 bits with one section of 16 bytes at its end.
QByteArray portableExecutable()
{
    constexpr int header = 0x80;
    constexpr int optionalHeader = 240;
    constexpr int section = header + 24 + optionalHeader;
    QByteArray file(section + 40 + 16, '\0');
    file.replace(0, 2, "MZ");
    put(file, 0x3C, header, 4);
    file.replace(header, 4, QByteArray("PE\0\0", 4));
    put(file, header + 4, 0x8664, 2);
    put(file, header + 6, 1, 2);
    put(file, header + 20, optionalHeader, 2);
    put(file, header + 22, 0x0022, 2);
    put(file, header + 24, 0x020B, 2);
    put(file, header + 24 + 108, 16, 4);
    put(file, section + 16, 16, 4);
    put(file, section + 20, section + 40, 4);
    return file;
}

QByteArray with(QByteArray file, qsizetype offset, quint64 value, int width)
{
    put(file, offset, value, width);
    return file;
}

/// Where a program of 64 bits tells of its signature.
constexpr int signatureEntry = 0x80 + 24 + 112 + 4 * 8;

/// With a signature behind the section, as signing tools put it there.
QByteArray signedExecutable()
{
    QByteArray file = portableExecutable();
    put(file, signatureEntry, quint64(file.size()), 4);
    put(file, signatureEntry + 4, 32, 4);
    return file + QByteArray(32, 's');
}

QByteArray signedExecutable32()
{
    QByteArray file = portableExecutable();
    put(file, 0x80 + 4, 0x014C, 2);
    put(file, 0x80 + 24, 0x010B, 2);
    put(file, 0x80 + 24 + 92, 16, 4);
    put(file, signatureEntry - 16, quint64(file.size()), 4);
    put(file, signatureEntry - 12, 32, 4);
    return file + QByteArray(32, 's');
}

QString fault(const ProgramKind& kind, const QByteArray& file)
{
    const auto head = std::as_bytes(std::span(file.constData(), std::size_t(file.size())))
                          .first(std::min(Updater::programHeadSize, std::size_t(file.size())));
    return Updater::findFault(kind, head, quint64(file.size()));
}

const QString good;
const QString noProgram = "is no program for this system";
const QString cutShort = "is cut short";
const QString webPage = "is a web page";
const QString otherMachine = "is a program for another processor";

} // namespace

class tst_UpdaterParts : public QObject {
    Q_OBJECT

private slots:
    void processId_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<quint32>("id");
        QTest::newRow("one digit") << QByteArray("7") << 7U;
        QTest::newRow("usual") << QByteArray("4711") << 4711U;
        QTest::newRow("largest") << QByteArray("4294967295") << 4'294'967'295U;
        QTest::newRow("leading zeros") << QByteArray("0042") << 42U;
        // Zero stands for none.
        QTest::newRow("too large") << QByteArray("4294967296") << 0U;
        QTest::newRow("far too large") << QByteArray(400, '9') << 0U;
        QTest::newRow("zero") << QByteArray("0") << 0U;
        QTest::newRow("nothing") << QByteArray() << 0U;
        QTest::newRow("blank") << QByteArray(" ") << 0U;
        QTest::newRow("blank in front") << QByteArray(" 7") << 0U;
        QTest::newRow("blank behind") << QByteArray("7 ") << 0U;
        QTest::newRow("plus") << QByteArray("+7") << 0U;
        QTest::newRow("minus") << QByteArray("-7") << 0U;
        QTest::newRow("letters") << QByteArray("launcher") << 0U;
        QTest::newRow("letter behind") << QByteArray("7x") << 0U;
        QTest::newRow("hexadecimal") << QByteArray("0x10") << 0U;
        QTest::newRow("fraction") << QByteArray("7.0") << 0U;
    }

    void processId()
    {
        QFETCH(QByteArray, text);
        QFETCH(quint32, id);
        const std::optional<quint32> parsed = Updater::parseProcessId(text.toStdString());
        QCOMPARE(parsed.has_value(), id != 0);
        QCOMPARE(parsed.value_or(0), id);
    }

    void header_data()
    {
        QTest::addColumn<bool>("windows");
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("expected");
        for (const bool windows : { false, true }) {
            const QByteArray name = windows ? "Windows: " : "Linux: ";
            const auto row = [&](const char* text, const QByteArray& file, const QString& fault) {
                QTest::newRow((name + text).constData()) << windows << file << fault;
            };
            row("empty", QByteArray(), "is empty");
            row("one byte", "M", noProgram);
            row("web page", "<!DOCTYPE html><html>404</html>", webPage);
            row("web page after blanks", "\r\n\t <html>", webPage);
            row("web page after a byte order mark", "\xEF\xBB\xBF<html>", webPage);
            row("text", "Not found\n", noProgram);
            row("script", "#!/bin/sh\nexit 0\n", noProgram);
            row("blanks alone", "  \n", noProgram);
            row("zeros", QByteArray(4096, '\0'), noProgram);
            row("the other system's program", windows ? elf64() : portableExecutable(), noProgram);
        }
        addLinuxRows();
        addWindowsRows();
    }

    void header()
    {
        QFETCH(bool, windows);
        QFETCH(QByteArray, file);
        QFETCH(QString, expected);
        QCOMPARE(fault(windows ? Updater::windowsProgram : linuxProgram, file), expected);
    }

    void realProgramIsGood()
    {
        QByteArray program = TestSupport::readFile(QCoreApplication::applicationFilePath());
        QCOMPARE(fault(Updater::nativeProgram, program), good);
        // What comes last in a Windows program is no part of it to the system.
        program.chop(Updater::nativeProgram.format == ProgramFormat::Elf ? 1 : program.size() / 2);
        QCOMPARE(fault(Updater::nativeProgram, program), cutShort);
    }

    /// As the publisher has it, on a server of any kind.
    void allProcessorsMayBeMeant()
    {
        const ProgramKind any{ ProgramFormat::Elf, {} };
        QCOMPARE(fault(any, with(elf64(), 18, 183, 2)), good);
    }

    /// Whatever a server sends: the sanitizers watch that nothing outside the
    /// file is read.
    void damagedHeadersAreSurvived()
    {
        QRandomGenerator random(20240501);
        int faults = 0;
        const QList<QByteArray> programs{ elf64(), elf32(), signedExecutable() };
        for (int round = 0; round < 200'000; ++round) {
            QByteArray file = programs.at(round % 3);
            for (int n = 0; n < 3; ++n)
                put(file, random.bounded(file.size() - 8), random.generate64(), 1 << (round % 4));
            file.truncate(random.bounded(file.size() + 1));
            faults
                += !fault(round % 3 == 2 ? Updater::windowsProgram : linuxProgram, file).isNull();
        }
        QVERIFY2(faults > 150'000, "hardly any damage is noticed");
    }

private:
    static void addLinuxRows()
    {
        const auto row = [](const char* name, const QByteArray& file, const QString& expected) {
            QTest::newRow((QByteArray("Linux: ") + name).constData()) << false << file << expected;
        };
        row("program of 64 bits", elf64(), good);
        row("program of 32 bits", elf32(), good);
        row("more than the header says", elf64() + "signature", good);
        row("without sections", with(with(elf64(), 40, 0, 8), 60, 0, 2), noProgram);
        row("segment beyond the end", with(elf64(), 64 + 8, 1, 8), cutShort);
        row("segment beyond the end, 32 bits", with(elf32(), 52 + 4, 1, 4), cutShort);
        row("segment beyond everything", with(elf64(), 64 + 32, ~0ULL, 8), cutShort);
        row("segments of another size", with(elf64(), 54, 55, 2), noProgram);
        row("for another processor", with(elf64(), 18, 183, 2), otherMachine);
        row("for another processor, 32 bits", with(elf32(), 18, 40, 2), otherMachine);
        row("last byte missing, 64 bits", elf64().chopped(1), cutShort);
        row("last byte missing, 32 bits", elf32().chopped(1), cutShort);
        row("the first bytes alone", elf64().left(20), noProgram);
        row("table beyond everything", with(elf64(), 32, ~0ULL, 8), cutShort);
        row("object file", with(elf64(), 16, 1, 2), noProgram);
        row("core dump", with(elf64(), 16, 4, 2), noProgram);
        row("no segments", with(elf64(), 56, 0, 2), noProgram);
        row("neither 32 nor 64 bits", with(elf64(), 4, 3, 1), noProgram);
        row("big end first", with(elf64(), 5, 2, 1), noProgram);
    }

    static void addWindowsRows()
    {
        const auto row = [](const char* name, const QByteArray& file, const QString& expected) {
            QTest::newRow((QByteArray("Windows: ") + name).constData()) << true << file << expected;
        };
        row("program", portableExecutable(), good);
        row("more than the header says", portableExecutable() + "signature", good);
        row("last byte missing", portableExecutable().chopped(1), cutShort);
        row("section table missing", portableExecutable().left(0x80 + 24 + 240), cutShort);
        row("the old part alone", portableExecutable().left(0x80), cutShort);
        row("header beyond everything", with(portableExecutable(), 0x3C, ~0U, 4), cutShort);
        row("program of the old system", with(portableExecutable(), 0x80, 0, 4), noProgram);
        row("library", with(portableExecutable(), 0x80 + 22, 0x2022, 2), noProgram);
        row("object file", with(portableExecutable(), 0x80 + 22, 0x0020, 2), noProgram);
        row("no sections", with(portableExecutable(), 0x80 + 6, 0, 2), noProgram);
        row("signed", signedExecutable(), good);
        row("signed, 32 bits", signedExecutable32(), good);
        row("last byte of the signature missing", signedExecutable().chopped(1), cutShort);
        row("last byte of the signature missing, 32 bits", signedExecutable32().chopped(1),
            cutShort);
        row("signature missing", signedExecutable().chopped(32), cutShort);
        row("signature beyond everything", with(signedExecutable(), signatureEntry, ~0U, 4),
            cutShort);
        row("too few entries for a signature",
            with(signedExecutable().chopped(32), 0x80 + 24 + 108, 4, 4), good);
        row("for another processor", with(portableExecutable(), 0x80 + 4, 0xAA64, 2), otherMachine);
    }
};

HALDEN_TEST_MAIN(tst_UpdaterParts)
#include "tst_updaterparts.moc"
