#pragma once

#include <functional>
#include <optional>

#include <QDBusVariant>
#include <QObject>
#include <QString>

class QDBusPendingCallWatcher;

namespace ambrel {

// The desktop's colour-scheme preference from the freedesktop settings portal
// (org.freedesktop.appearance color-scheme on the session bus), read once at start and followed
// through SettingChanged. Told `true` for dark, `false` for light, and absent when the desktop
// states no preference or cannot be asked (no bus, no portal): the palette decides then.
class ColorSchemeWatcher final : public QObject {
    Q_OBJECT
public:
    using Handler = std::function<void(std::optional<bool> prefersDark)>;

    explicit ColorSchemeWatcher(Handler handler, QObject* parent = nullptr);
    ~ColorSchemeWatcher() override;

    // The portal's value: 1 prefers dark, 2 prefers light, anything else no preference.
    static std::optional<bool> prefersDark(unsigned value);

private Q_SLOTS:
    void settingChanged(const QString& group, const QString& key, const QDBusVariant& value);

private:
    void readOnce(const QString& method);
    void readFinished(QDBusPendingCallWatcher* call, const QString& method);
    void apply(const QVariant& value);

    Handler m_handler;
    bool m_listening = false;
};

} // namespace ambrel
