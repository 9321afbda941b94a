#include "muxer/MuxerServer.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <pthread.h>
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
    if (m_options.standingListen) {
        m_usbWatch =
            std::make_unique<SystemDeviceWatch>(m_options.systemMuxerPath, m_stopFd.get(),
                                                m_options.systemMuxerLimit, m_options.arrivals);
        m_usbWatch->start();
    }
    m_acceptThread = std::thread([this] {
        ::pthread_setname_np(::pthread_self(), "mux-accept");
        acceptLoop();
    });
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
    {
        const std::lock_guard lock(m_workersMutex);
        m_stopping = true;
    }
    m_clientWaiting.notify_all();
    reapFinishedWorkers(true);
    // Only now: no client is left to ask it.
    m_usbWatch.reset();
    {
        const std::lock_guard lock(m_workersMutex);
        m_clientCount -= static_cast<int>(m_waiting.size());
        m_waiting.clear();
        m_stopping = false;
    }
    ::unlink(m_options.socketPath.c_str());
    m_listenFd.reset();
}

bool MuxerServer::watchesSystemMuxer() const {
    return m_usbWatch != nullptr && m_usbWatch->usbDevices().has_value();
}

void MuxerServer::reapFinishedWorkers(bool all) {
    std::list<std::unique_ptr<Worker>> done;
    {
        const std::lock_guard lock(m_workersMutex);
        for (auto it = m_workers.begin(); it != m_workers.end();) {
            if (all || (*it)->finished.load()) {
                done.splice(done.end(), m_workers, it++);
            } else {
                ++it;
            }
        }
    }
    for (auto& worker : done) {
        if (worker->thread.joinable()) {
            worker->thread.join();
        }
    }
}

void MuxerServer::acceptLoop() {
    for (;;) {
        // No time-out: the thread sleeps until a client connects or the stop. A worker that
        // ended is joined at the next client (or the stop), not woken for: its thread is gone
        // from the system already, only its handle waits.
        pollfd fds[2] = {{m_listenFd.get(), POLLIN, 0}, {m_stopFd.get(), POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0 && errno != EINTR) {
            return;
        }
        if ((fds[1].revents & POLLIN) != 0) {
            return;
        }
        if ((fds[0].revents & POLLIN) == 0) {
            continue;
        }
        reapFinishedWorkers(false);
        UniqueFd fd(::accept4(m_listenFd.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!fd.isValid()) {
            continue;
        }
        if (m_clientCount.load() >= kMostClients) {
            continue;
        }
        ++m_clientCount;
        bool wakeIdle = false;
        {
            const std::lock_guard lock(m_workersMutex);
            m_waiting.push_back(std::move(fd));
            // A worker that is woken counts as idle until it took its client, so every waiting
            // client has a worker of its own.
            wakeIdle = m_idleWorkers >= static_cast<int>(m_waiting.size());
            if (!wakeIdle) {
                auto worker = std::make_unique<Worker>();
                Worker& started = *worker;
                m_workers.push_back(std::move(worker));
                started.thread = std::thread([this, &started] {
                    ::pthread_setname_np(::pthread_self(), "mux-client");
                    work(started);
                });
            }
        }
        // Outside the lock, so that the woken worker does not wait for it.
        if (wakeIdle) {
            m_clientWaiting.notify_one();
        }
    }
}

void MuxerServer::work(Worker& worker) {
    std::unique_lock lock(m_workersMutex);
    while (!m_stopping) {
        if (m_waiting.empty()) {
            ++m_idleWorkers;
            const bool hasClient = m_clientWaiting.wait_for(
                lock, kWorkerLinger, [this] { return m_stopping || !m_waiting.empty(); });
            --m_idleWorkers;
            if (!hasClient || m_stopping) {
                break;
            }
        }
        UniqueFd client = std::move(m_waiting.front());
        m_waiting.pop_front();
        lock.unlock();
        serve(client.get());
        client.reset();
        --m_clientCount;
        lock.lock();
    }
    worker.finished.store(true);
}

void MuxerServer::serve(int clientFd) {
    MuxSession session(clientFd, m_stopFd.get(),
                       {m_options.systemMuxerPath, m_options.network, m_options.systemMuxerLimit,
                        m_options.clientLimit, m_options.listenPeriod, m_usbWatch.get()});
    session.run();
}

} // namespace ambrel
