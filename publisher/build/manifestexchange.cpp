#include "publisher/build/manifestexchange.h"

#include "publisher/build/servedfolder.h"

namespace Publisher {

Problem exchangeManifest(
    const ServedFolder& folder, const ManifestExchange& exchange, Clock& clock,
    const std::function<Problem(const QString& path)>& verify)
{
    const auto note = [&] {
        const History history(folder.root(), exchange.kind);
        return exchange.isPublication ? history.record(exchange.text, exchange.note) : Problem();
    };
    // It is read with its own date: files of one name, size and date are one file to
    // the settings layer.
    const ServedFolder::Replacement replacement{
        .name = exchange.name,
        .write = [&](const QString& draft) { return FileWork::write(draft, exchange.text); },
        .verify = verify,
        .flush = exchange.flush,
    };
    return inOrder(note, [&] { return folder.replace(replacement, clock); });
}

} // namespace Publisher
