#include "muxer/MuxerServer.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "muxer/MuxSession.h"

namespace ambrel {

MuxerServer::MuxerServer(Options options) : m_options(std::move(options)) {}

MuxerServer::~MuxerServer() {
    stop();
}

bool MuxerServer::start() {
    if (m_started) {
        return true;
    }
    const std::string path = m_options.socketPath.string();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        m_failure = "socket path too long";
        return false;
    }
    std::memcpy(address.sun_path, path.data(), path.size());

    m_stopFd.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    m_listenFd.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!m_stopFd.isValid() || !m_listenFd.isValid()) {
        m_failure = std::strerror(errno);
        return false;
    }
    // A socket file that no longer answers is what a crashed earlier run leaves behind.
    if (!connectUnixSocket(path).isValid()) {
        ::unlink(path.c_str());
    }
    // The socket is created with the umask's mode; keep it private from the start.
    const mode_t previous = ::umask(0177);
    const int bound =
        ::bind(m_listenFd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int bindError = errno;
    ::umask(previous);
    if (bound != 0) {
        m_failure = std::strerror(bindError);
        m_listenFd.reset();
        return false;
    }
    if (::chmod(path.c_str(), 0600) != 0 || ::listen(m_listenFd.get(), kMostClients) != 0) {
        m_failure = std::strerror(errno);
        ::unlink(path.c_str());
        m_listenFd.reset();
        return false;
    }
    m_started = true;
    m_acceptThread = std::thread([this] { acceptLoop(); });
    return true;
}

void MuxerServer::stop() {
    if (!m_started) {
        return;
    }
    m_started = false;
    const std::uint64_t one = 1;
    // The eventfd stays readable from now on, so every wait of every thread ends.
    [[maybe_unused]] const auto written = ::write(m_stopFd.get(), &one, sizeof one);
    if (m_acceptThread.joinable()) {
        m_acceptThread.join();
    }
    reapFinishedClients(true);
    ::unlink(m_options.socketPath.c_str());
    m_listenFd.reset();
}

void MuxerServer::reapFinishedClients(bool all) {
    std::list<std::unique_ptr<Client>> done;
    {
        const std::lock_guard lock(m_clientsMutex);
        for (auto it = m_clients.begin(); it != m_clients.end();) {
            if (all || (*it)->finished.load()) {
                done.splice(done.end(), m_clients, it++);
            } else {
                ++it;
            }
        }
    }
    for (auto& client : done) {
        if (client->thread.joinable()) {
            client->thread.join();
        }
    }
}

void MuxerServer::acceptLoop() {
    for (;;) {
        pollfd fds[2] = {{m_listenFd.get(), POLLIN, 0}, {m_stopFd.get(), POLLIN, 0}};
        if (::poll(fds, 2, 1000) < 0 && errno != EINTR) {
            return;
        }
        if ((fds[1].revents & POLLIN) != 0) {
            return;
        }
        reapFinishedClients(false);
        if ((fds[0].revents & POLLIN) == 0) {
            continue;
        }
        UniqueFd fd(::accept4(m_listenFd.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!fd.isValid()) {
            continue;
        }
        if (m_clientCount.load() >= kMostClients) {
            continue;
        }
        auto client = std::make_unique<Client>();
        client->fd = std::move(fd);
        Client& served = *client;
        ++m_clientCount;
        {
            const std::lock_guard lock(m_clientsMutex);
            m_clients.push_back(std::move(client));
        }
        served.thread = std::thread([this, &served] { serve(served); });
    }
}

void MuxerServer::serve(Client& client) {
    MuxSession session(client.fd.get(), m_stopFd.get(),
                       {m_options.systemMuxerPath, m_options.network, m_options.systemMuxerLimit,
                        m_options.clientLimit, m_options.listenPeriod});
    session.run();
    client.fd.reset();
    --m_clientCount;
    client.finished.store(true);
}

} // namespace ambrel
