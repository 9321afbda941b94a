#pragma once

#include <functional>

#include <QObject>

namespace ambrel {

// Tells when the computer wakes from sleep: logind's PrepareForSleep(false) on the system bus.
// Without a system bus or logind it simply never tells. Destroying it stops the telling.
class WakeObserver final : public QObject {
    Q_OBJECT
public:
    explicit WakeObserver(std::function<void()> onWake, QObject* parent = nullptr);
    ~WakeObserver() override;

    bool isListening() const { return m_listening; }

private Q_SLOTS:
    void prepareForSleep(bool goingToSleep);

private:
    std::function<void()> m_onWake;
    bool m_listening = false;
};

} // namespace ambrel
