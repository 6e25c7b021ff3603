#include "bench/players/transport.h"

#include "app/constants.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QLocale>
#include <QTimeZone>

#include <curl/curl.h>
#include <sys/socket.h>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace Players {

namespace {

// As long as a launcher waits for a server that says nothing.
constexpr long secondsOfSilence = 60;
// The libraries' header writes the upper bound's number into the upper half.
constexpr long tls12Only = long{ CURL_SSLVERSION_TLSv1_2 } | long{ CURL_SSLVERSION_TLSv1_2 } << 16;

QByteArray httpDate(qint64 seconds)
{
    const QDateTime date = QDateTime::fromSecsSinceEpoch(seconds, QTimeZone::utc());
    return QLocale::c().toString(date, u"ddd, dd MMM yyyy hh:mm:ss 'GMT'"_s).toLatin1();
}

} // namespace

struct Transport::Exchange {
    Exchange(const Question& asked, Handler then, int askedBy)
        : question(asked)
        , handler(std::move(then))
        , owner(askedBy)
        , handle(curl_easy_init())
    {
    }

    ~Exchange()
    {
        curl_easy_cleanup(handle);
        curl_slist_free_all(headers);
        curl_slist_free_all(detour);
    }

    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    void prepare(const QByteArray& authority);

    /// Little fits between the server and a player who hangs up.
    static int narrow(void* exchange, curl_socket_t socket, curlsocktype purpose);
    static std::size_t take(char* data, std::size_t size, std::size_t count, void* exchange);

    Question question;
    Handler handler;
    int owner;
    CURL* handle;
    curl_slist* headers = nullptr;
    curl_slist* detour = nullptr;
    QCryptographicHash hash{ QCryptographicHash::Md5 };
    Answer answer;
};

void Transport::Exchange::prepare(const QByteArray& authority)
{
    headers
        = curl_slist_append(headers, "If-Modified-Since: " + httpDate(question.ifModifiedSince));
    headers = curl_slist_append(headers, "Accept-Encoding: gzip, deflate");
    curl_easy_setopt(handle, CURLOPT_URL, question.url.toEncoded().constData());
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(handle, CURLOPT_USERAGENT, applicationDisplayName.toLatin1().constData());
    curl_easy_setopt(handle, CURLOPT_SSLVERSION, tls12Only);
    curl_easy_setopt(handle, CURLOPT_CAINFO, authority.constData());
    curl_easy_setopt(handle, CURLOPT_SSL_SESSIONID_CACHE, 0L);
    curl_easy_setopt(handle, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, secondsOfSilence);
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &Exchange::take);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, this);
    if (!question.from.isEmpty())
        curl_easy_setopt(handle, CURLOPT_INTERFACE, ("host!" + question.from).constData());
    if (question.breaksOffAfter > 0)
        curl_easy_setopt(handle, CURLOPT_SOCKOPTFUNCTION, &Exchange::narrow);
    if (!question.server.isEmpty()) {
        const QByteArray from = question.url.host(QUrl::FullyEncoded).toLatin1() + ':'
            + QByteArray::number(question.url.port(443)) + ':';
        detour = curl_slist_append(detour, from + question.server);
        curl_easy_setopt(handle, CURLOPT_CONNECT_TO, detour);
    }
}

int Transport::Exchange::narrow(void*, curl_socket_t socket, curlsocktype)
{
    const int size = 64 << 10;
    setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    return CURL_SOCKOPT_OK;
}

std::size_t
Transport::Exchange::take(char* data, std::size_t size, std::size_t count, void* exchange)
{
    auto* const self = static_cast<Exchange*>(exchange);
    const QByteArrayView piece(data, static_cast<qsizetype>(size * count));
    self->hash.addData(piece);
    self->answer.length += piece.size();
    const qint64 limit = self->question.breaksOffAfter;
    if (limit > 0 && self->answer.length > limit)
        return CURL_WRITEFUNC_ERROR;
    if (self->question.wantsBody)
        self->answer.body += piece;
    return size * count;
}

Transport::Transport(QByteArray authority)
    : authorityFile(std::move(authority))
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
    multi = curl_multi_init();
}

Transport::~Transport()
{
    for (const auto& [handle, exchange] : exchanges)
        curl_multi_remove_handle(multi, handle);
    exchanges.clear();
    curl_multi_cleanup(multi);
    curl_global_cleanup();
}

void Transport::ask(const Question& question, Handler handler, int owner)
{
    auto exchange = std::make_unique<Exchange>(question, std::move(handler), owner);
    exchange->prepare(authorityFile);
    CURL* const handle = exchange->handle;
    exchanges.emplace(handle, std::move(exchange));
    curl_multi_add_handle(multi, handle);
}

void Transport::cancel(int owner)
{
    for (auto it = exchanges.begin(); it != exchanges.end();) {
        if (it->second->owner == owner) {
            curl_multi_remove_handle(multi, it->first);
            it = exchanges.erase(it);
        } else {
            ++it;
        }
    }
}

void Transport::turn(std::chrono::milliseconds limit)
{
    int running = 0;
    curl_multi_perform(multi, &running);
    // A handler may break off others, so what has ended is fetched one by one.
    int rest = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi, &rest)) {
        if (message->msg == CURLMSG_DONE)
            conclude(message->easy_handle, message->data.result);
    }
    curl_multi_poll(multi, nullptr, 0, static_cast<int>(limit.count()), nullptr);
}

void Transport::conclude(void* handle, int result)
{
    curl_multi_remove_handle(multi, handle);
    const auto node = exchanges.extract(handle);
    if (node.empty())
        return;
    Exchange& exchange = *node.mapped();
    Answer& answer = exchange.answer;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &answer.status);
    answer.isWhole = result == CURLE_OK;
    answer.md5 = exchange.hash.result().toHex();
    if (!answer.isWhole)
        answer.error = curl_easy_strerror(static_cast<CURLcode>(result));
    exchange.handler(answer);
}

} // namespace Players
