#pragma once

#include <QString>

#include <optional>

namespace Publisher {

/// Where one of several servers of the same name is reached by itself.
struct ConnectAddress {
    /// An IPv4 or IPv6 address, without brackets.
    QString host;
    quint16 port = 0;

    /// From "192.0.2.10:443" or "[2001:db8::10]:443"; nothing from anything else.
    static std::optional<ConnectAddress> read(const QString& text);
    /// In the same form.
    QString text() const;

    friend bool operator==(const ConnectAddress&, const ConnectAddress&) = default;
};

} // namespace Publisher
