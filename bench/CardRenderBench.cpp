// How long the whole card takes to draw offscreen, at one and two device pixels per point, and
// how long bringing it up to date with the monitor takes. Run on the offscreen platform unless
// QT_QPA_PLATFORM names another.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QImage>
#include <QLayout>
#include <deque>
#include <memory>
#include <mutex>

#include "bench/RunBenchmarks.h"
#include "monitor/BatteryMonitor.h"
#include "presentation/UserLocale.h"
#include "views/AmbrelView.h"
#include "views/Appearance.h"
#include "views/ViewStyle.h"

namespace {

using namespace ambrel;

// Time stands still and nothing runs in the background: the card only needs readings to draw.
class StillClock final : public Clock, public MainScheduler, public Worker {
public:
    Date now() const override { return Date::fromSecondsSince1970(1794667260.0); }
    std::shared_ptr<Timer> scheduleTimer(TimerDelay, TimerRepeat, std::function<void()>) override {
        return nullptr;
    }
    void post(std::function<void()> task) override {
        std::lock_guard lock(m_mutex);
        m_tasks.push_back(std::move(task));
    }
    void run(std::function<void()> job) override {
        std::lock_guard lock(m_mutex);
        m_jobs.push_back(std::move(job));
    }
    void pause(std::chrono::milliseconds) override {}

    // Runs the phone read that was started and applies its outcome.
    void drain() {
        for (auto* queue : {&m_jobs, &m_tasks}) {
            while (true) {
                std::function<void()> next;
                {
                    std::lock_guard lock(m_mutex);
                    if (queue->empty()) {
                        break;
                    }
                    next = std::move(queue->front());
                    queue->pop_front();
                }
                next();
            }
        }
    }

private:
    std::mutex m_mutex;
    std::deque<std::function<void()>> m_jobs;
    std::deque<std::function<void()>> m_tasks;
};

class OneBattery final : public PowerSourceProvider {
public:
    // The charge the next read reports.
    std::int64_t percentage = 82;

    std::optional<PowerSourceList> copyPowerSources() override {
        PowerSourceDescription battery;
        battery["Current Capacity"] = percentage;
        battery["Max Capacity"] = std::int64_t{100};
        battery["Is Present"] = true;
        battery["Transport Type"] = std::string("Internal");
        battery["Power Source State"] = std::string("AC Power");
        battery["Is Charging"] = true;
        return PowerSourceList{battery};
    }
};

class NamedHost final : public HostInfo {
public:
    std::optional<std::string> localizedName() const override {
        return std::string("Anna\u2019s MacBook Pro");
    }
    std::optional<std::string> rawModelIdentifier() const override {
        return std::string("MacBookPro18,3");
    }
};

class NoFolders final : public Folders {
public:
    std::optional<std::filesystem::path> applicationSupport() const override {
        return std::nullopt;
    }
    std::filesystem::path temporary() const override {
        return std::filesystem::temp_directory_path();
    }
};

class NoBundle final : public Bundle {
public:
    std::filesystem::path executablePath() const override { return "/nonexistent/bin/tovrin"; }
    std::optional<std::filesystem::path> resourceFolder() const override { return std::nullopt; }
    std::optional<std::string> infoString(const std::string&) const override {
        return std::nullopt;
    }
};

// A monitor with this computer charging at 82 % and the phone read at 64 % over Wi-Fi. The
// cache path points into a folder that does not exist, so nothing is written.
struct Scene {
    std::shared_ptr<StillClock> clock = std::make_shared<StillClock>();
    std::shared_ptr<OneBattery> battery = std::make_shared<OneBattery>();
    std::unique_ptr<BatteryMonitor> monitor;
    UserLocale locale{"en_US", "America/New_York"};
    Appearance appearance{*QCoreApplication::instance()};
    ViewStyle style{appearance, ViewFonts(), "Tovrin"};

    Scene() {
        MonitorServices services;
        services.clock = clock;
        services.scheduler = clock;
        services.worker = clock;
        services.powerSources = battery;
        services.host = std::make_shared<NamedHost>();
        services.folders = std::make_shared<NoFolders>();
        services.bundle = std::make_shared<NoBundle>();
        auto still = clock;
        services.readPhone = [still](const std::filesystem::path&,
                                     const std::optional<std::string>&,
                                     const std::optional<PhoneIdentity>&) -> PhoneReadResult {
            BatteryDeviceSnapshot snapshot("iphone", "Anna\u2019s iPhone", 64, false, false,
                                           still->now(), "Wi-Fi", std::string("iPhone15,2"));
            return PhoneReading{snapshot, PhoneLink::wifi, "00008110-BENCH",
                                PhoneIdentity{"00008110-BENCH", "Anna\u2019s iPhone", {}}};
        };
        monitor = std::make_unique<BatteryMonitor>(
            std::move(services), std::nullopt,
            std::filesystem::path("/nonexistent/tovrin-bench/battery-cache.json"));
        monitor->refreshAll();
        clock->drain();
    }
};

enum class Reading { unchanged, changedEveryFrame };

// A frame is the whole card drawn into an image. With an unchanged reading the card reuses the
// drawings it keeps; with a new reading of this computer before every frame, its gauge is drawn
// afresh each time, as after a real refresh.
void renderCard(benchmark::State& state, qreal devicePixelRatio, Reading reading) {
    Scene scene;
    AmbrelView view(scene.style, *scene.monitor, scene.locale, {}, {}, {});
    view.show();
    view.layout()->activate();
    QApplication::processEvents();

    QImage image((QSizeF(view.size()) * devicePixelRatio).toSize(),
                 QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(devicePixelRatio);
    for (auto _ : state) {
        if (reading == Reading::changedEveryFrame) {
            scene.battery->percentage = scene.battery->percentage == 82 ? 83 : 82;
            scene.monitor->refreshMac();
        }
        image.fill(Qt::transparent);
        view.render(&image);
        benchmark::DoNotOptimize(image.constBits());
    }
}

void BM_RenderCard1x(benchmark::State& state) {
    renderCard(state, 1.0, Reading::unchanged);
}

void BM_RenderCard2x(benchmark::State& state) {
    renderCard(state, 2.0, Reading::unchanged);
}

void BM_NewReadingAndRenderCard1x(benchmark::State& state) {
    renderCard(state, 1.0, Reading::changedEveryFrame);
}

void BM_NewReadingAndRenderCard2x(benchmark::State& state) {
    renderCard(state, 2.0, Reading::changedEveryFrame);
}

// Rebuilding both gauges from the monitor, as every published change and clock tick does.
void BM_SyncFromMonitor(benchmark::State& state) {
    Scene scene;
    AmbrelView view(scene.style, *scene.monitor, scene.locale, {}, {}, {});
    for (auto _ : state) {
        view.syncFromMonitor();
    }
}

// Every card benchmark: five runs, reported as their aggregates, in microseconds.
void fiveRunsInMicroseconds(benchmark::internal::Benchmark* family) {
    family->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);
}

BENCHMARK(BM_RenderCard1x)->Apply(fiveRunsInMicroseconds);
BENCHMARK(BM_RenderCard2x)->Apply(fiveRunsInMicroseconds);
BENCHMARK(BM_NewReadingAndRenderCard1x)->Apply(fiveRunsInMicroseconds);
BENCHMARK(BM_NewReadingAndRenderCard2x)->Apply(fiveRunsInMicroseconds);
BENCHMARK(BM_SyncFromMonitor)->Apply(fiveRunsInMicroseconds);

} // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication application(argc, argv);
    return ambrel::bench::runBenchmarks(argc, argv);
}
