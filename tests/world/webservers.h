#pragma once

#include "tests/world/serverprocess.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

#include <memory>

/// The web servers that administrators may choose from, with the configurations that
/// they are given, in the sandbox and on its loopback.
namespace WebServers {

/// What stands in a configuration, and what takes its place in here.
using Replacements = QList<QPair<QByteArray, QByteArray>>;

/// A file of packaging/ with replacements, each of which has to find its text.
QByteArray packaged(const QString& file, const Replacements& replacements);

/// Hosts and certificates of this community, for nginx.
Replacements ownNames();

/// A server with this site, and nothing else but what the sandbox needs.
std::unique_ptr<ServerProcess> nginx(const QString& name, QByteArray site);
std::unique_ptr<ServerProcess> apache(const QString& name, QByteArray site);
std::unique_ptr<ServerProcess> caddy(const QString& name, QByteArray site);

/// The configuration of a community's one server, at port 443 of 127.0.0.1 with the
/// certificate that tests trust. `program` is "nginx", "apache" or "caddy".
std::unique_ptr<ServerProcess> communityServer(const QString& program);

/// What a server of this name may write into.
QString folderOf(const QString& name);
/// What the administrators' configuration has it write of requests.
QString logFileOf(const QString& name);
/// Combined lines of the same requests, which nginx and Apache write beside it.
QString combinedLogFileOf(const QString& name);

} // namespace WebServers
