// Preloaded into the launcher: a network thread that has come to the server's
// certificate in a TLS handshake makes the file that HALDEN_HELD_MARK names and is
// held there until the process ends. An ordinary end runs the clean-up of the TLS
// library first and then this library's, which lets the thread go on: into what is
// no longer there. An end without clean-up never gets that far.

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

namespace {

constexpr std::chrono::seconds patience(30);

// Never destroyed: the held thread waits beyond every destructor.
auto& lock = *new std::mutex;
auto& change = *new std::condition_variable;
bool released = false;
bool passed = false;

/// Comes after the TLS library's clean-up, because it was asked for before.
void letThreadGoOn()
{
    std::unique_lock guard(lock);
    released = true;
    change.notify_all();
    change.wait_for(guard, patience, [] { return passed; });
}

[[gnu::constructor]] void prepare()
{
    std::atexit(&letThreadGoOn);
}

} // namespace

extern "C" int X509_verify_cert(void* certificates)
{
    close(open(std::getenv("HALDEN_HELD_MARK"), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    void* library = dlopen("libcrypto.so.3", RTLD_NOLOAD | RTLD_NOW);
    auto* const verify = reinterpret_cast<int (*)(void*)>(dlsym(library, "X509_verify_cert"));
    std::unique_lock guard(lock);
    change.wait(guard, [] { return released; });
    guard.unlock();
    const int result = verify(certificates);
    guard.lock();
    passed = true;
    change.notify_all();
    return result;
}
