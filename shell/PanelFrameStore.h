#pragma once

#include <optional>

#include <QRect>
#include <QSettings>

#include "shell/SettingsFile.h"

namespace ambrel {

// The panel's frame remembered across launches under "AmbrelPosition" in the program's
// settings file ($XDG_CONFIG_HOME/Quenby/Tovrin.conf). Saving only marks the value: the event loop
// writes it out shortly after, so a drag that moves the panel many times a second does not write
// the file each time; flush() writes at once.
class PanelFrameStore {
public:
    static constexpr const char* kKey = "AmbrelPosition";

    // Absent when nothing usable was saved.
    std::optional<QRect> load() const;
    void save(const QRect& frame);
    void flush();

private:
    QSettings m_settings{QString::fromLatin1(SettingsFile::kOrganization),
                         QString::fromLatin1(SettingsFile::kApplication)};
};

} // namespace ambrel
