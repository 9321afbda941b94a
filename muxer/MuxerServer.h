#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "muxer/MuxChannel.h"
#include "muxer/NetworkPhoneSource.h"
#include "muxer/SystemDeviceWatch.h"

namespace ambrel {

// The program's own muxer: speaks the usbmuxd protocol on a private UNIX socket, passes every
// USB request through to the system muxer, and adds the phones a NetworkPhoneSource knows on
// the network. USB listings come from a Listen kept standing at the system muxer while it is
// there. All work happens on its own threads: one that accepts, one that keeps the Listen, one
// per client being served. A thread that served a client takes the next one waiting, else it
// ends: starting a thread for a read's next connection costs less than a thread that lingers
// and wakes to end. A slow, silent or absent system muxer costs a client its USB devices, never
// more.
class MuxerServer {
public:
    struct Options {
        // Where to listen. The folder must exist; the socket is made 0600.
        std::filesystem::path socketPath;
        // The system's usbmuxd socket.
        std::string systemMuxerPath = "/var/run/usbmuxd";
        // May be null: USB only. Must outlive the server.
        NetworkPhoneSource* network = nullptr;
        // How long the system muxer may take to answer one request; a client waits 5 s.
        std::chrono::milliseconds systemMuxerLimit{3000};
        // How long a client may take to send a request.
        std::chrono::milliseconds clientLimit{30000};
        // How often a listening client is told about Wi-Fi phones that came or went.
        std::chrono::milliseconds listenPeriod{1000};
        // Whether to keep a Listen standing at the system muxer for listings; without it every
        // listing asks the system muxer.
        bool standingListen = true;
        // Told of every phone plugged in while a Listen stands at the system muxer.
        PhoneArrivalSink* arrivals = nullptr;
    };

    // Clients connected at once beyond this are hung up on at once.
    static constexpr int kMostClients = 128;
    // How long a thread that served a client waits for another before it ends: not at all.
    static constexpr std::chrono::milliseconds kWorkerLinger{0};

    explicit MuxerServer(Options options);
    // Stops, as stop() does.
    ~MuxerServer();
    MuxerServer(const MuxerServer&) = delete;
    MuxerServer& operator=(const MuxerServer&) = delete;

    // Binds and starts listening. False (with errno's text in failure()) when the socket
    // cannot be made. A socket file left by an earlier run that no longer answers is replaced.
    bool start();
    // Ends every client and the accepting thread, removes the socket. Blocks until they ended
    // (at most a moment: every wait also watches for the stop). Idempotent.
    void stop();

    const std::string& failure() const { return m_failure; }
    const std::filesystem::path& socketPath() const { return m_options.socketPath; }
    // Clients being served now.
    int clientCount() const { return m_clientCount.load(); }
    // Whether listings are answered from a Listen standing at the system muxer.
    bool watchesSystemMuxer() const;

private:
    struct Worker {
        std::thread thread;
        std::atomic<bool> finished{false};
    };

    void acceptLoop();
    void work(Worker& worker);
    void serve(int clientFd);
    void reapFinishedWorkers(bool all);

    Options m_options;
    std::string m_failure;
    UniqueFd m_listenFd;
    UniqueFd m_stopFd;
    std::thread m_acceptThread;
    std::unique_ptr<SystemDeviceWatch> m_usbWatch;
    // Guards the workers, the clients waiting for one, and the idle count.
    std::mutex m_workersMutex;
    std::condition_variable m_clientWaiting;
    std::list<std::unique_ptr<Worker>> m_workers;
    std::deque<UniqueFd> m_waiting;
    int m_idleWorkers = 0;
    bool m_stopping = false;
    std::atomic<int> m_clientCount{0};
    bool m_started = false;
};

} // namespace ambrel
