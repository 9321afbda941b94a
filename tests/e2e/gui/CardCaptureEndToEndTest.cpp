// The real widget on a virtual X display, fed by the simulated iPhone: the preview capture must
// show the phone's ring filled in the colour of a fresh reading.
#include <chrono>
#include <cmath>
#include <thread>

#include <QColor>
#include <QImage>
#include <QString>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/e2e/TestBundle.h"
#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/simphone/SimulatedIphone.h"

namespace ambrel::testing {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

// Where the phone's ring lies in the 360 x 170 card, in points, from the card's layout:
// padding 16 left and right and 12 at the top; a header 16 high, then 8 of spacing, then the
// gauge row, whose two gauges share the 328 inner points around a spacing of 16 (156 each);
// each gauge starts at the row's top with its ring, 64 x 64 inside a padding of 2, centred in
// the gauge's width.
constexpr double kCardWidth = 360;
constexpr double kCardHeight = 170;
constexpr double kGaugeWidth = (kCardWidth - 2 * 16 - 16) / 2;
constexpr double kRingCentreX = 16 + kGaugeWidth + 16 + kGaugeWidth / 2; // 266
constexpr double kRingCentreY = 12 + 16 + 8 + 2 + 64 / 2.0;              // 70
// The ring's band is 5.5 wide around the 64-point circle; 31.5 from the centre lies inside it
// whether the band is centred on the circle or kept within the ring's padded frame.
constexpr double kBandRadius = 31.5;
constexpr double kPi = 3.14159265358979323846;

// The capture is scheduled about 4 s after launch; allow for a slow start.
constexpr auto kCaptureLimit = 20s;

class CardCaptureEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(m_folder.path().empty());
        m_bundle = std::make_unique<TestBundle>(m_folder.path() / "bundle");
        ASSERT_EQ(m_bundle->failure(), "");
        // -displayfd picks a free display number and reports it, so parallel runs never meet;
        // -noreset keeps a client that connects as the last one leaves from being turned away.
        m_xvfb = std::make_unique<ChildProcess>(
            std::vector<std::string>{TOVRIN_XVFB, "-displayfd", "1", "-noreset", "-screen", "0",
                                     "1280x800x24", "-nolisten", "tcp"},
            environmentWith({}), m_folder.path() / "xvfb.log");
        ASSERT_TRUE(m_xvfb->isStarted());
        const auto number = m_xvfb->readLine(10s);
        ASSERT_TRUE(number.has_value()) << "Xvfb did not report its display";
        m_display = ":" + *number;
    }

    // The colour of the capture at a point of the card (in points).
    static QColor colourAt(const QImage& image, double x, double y) {
        const double scale = image.width() / kCardWidth;
        return image.pixelColor(static_cast<int>(std::floor(x * scale)),
                                static_cast<int>(std::floor(y * scale)));
    }

    // A point of the phone ring's band, `degrees` clockwise from twelve o'clock.
    static QColor ringColourAt(const QImage& image, double degrees) {
        const double angle = degrees * kPi / 180.0;
        return colourAt(image, kRingCentreX + kBandRadius * std::sin(angle),
                        kRingCentreY - kBandRadius * std::cos(angle));
    }

    static bool isGreen(const QColor& colour) {
        return colour.alpha() >= 200 && colour.hsvHue() >= 90 && colour.hsvHue() <= 160 &&
               colour.hsvSaturationF() >= 0.45 && colour.valueF() >= 0.4;
    }

    static std::string describe(const QColor& colour) {
        return colour.name(QColor::HexArgb).toStdString();
    }

    TemporaryFolder m_folder;
    std::unique_ptr<TestBundle> m_bundle;
    std::unique_ptr<ChildProcess> m_xvfb;
    std::string m_display;
};

TEST_F(CardCaptureEndToEnd, FreshPhoneReadingDrawsAGreenArcFromTwelveOClock) {
    const auto phoneFolder = m_folder.path() / "phone";
    std::filesystem::create_directories(phoneFolder);
    const json scenario = {{"devices", json::array({{{"udid", "00008110001A2B3C4D5E6F70"},
                                                     {"connection", "usb"},
                                                     {"battery",
                                                      {{"BatteryCurrentCapacity", 87},
                                                       {"BatteryIsCharging", false},
                                                       {"ExternalConnected", false}}}}})}};
    SimulatedIphone phone(phoneFolder, scenario, 60s);
    ASSERT_TRUE(phone.isReady()) << phone.failure();

    const auto png = m_folder.path() / "card.png";
    ChildProcess widget(
        {m_bundle->executable().string(), "--capture-preview", png.string(), "--preview-light"},
        m_bundle->environment(phone.socketAddress(), m_display), m_folder.path() / "tovrin.log");
    ASSERT_TRUE(widget.isStarted());
    const auto deadline = std::chrono::steady_clock::now() + kCaptureLimit;
    while (!std::filesystem::exists(png) && std::chrono::steady_clock::now() < deadline &&
           !widget.hasEnded()) {
        std::this_thread::sleep_for(100ms);
    }
    ASSERT_TRUE(std::filesystem::exists(png))
        << "no capture; the widget " << (widget.hasEnded() ? "ended" : "kept running");
    // The capture does not end the program.
    EXPECT_FALSE(widget.hasEnded());
    widget.stop();

    // The phone was read before the capture.
    EXPECT_EQ(phone.stats()["devices"]["00008110001A2B3C4D5E6F70"]["getValue"]
                           ["com.apple.mobile.battery"],
              1);

    QImage image;
    ASSERT_TRUE(image.load(QString::fromStdString(png.string()), "PNG"));
    ASSERT_GT(image.width(), 0);
    EXPECT_EQ(image.width() * kCardHeight, image.height() * kCardWidth) << "360 x 170 card";
    EXPECT_EQ(image.width() % static_cast<int>(kCardWidth), 0);

    // 87 %: green from twelve o'clock clockwise to about 313 degrees, then only the faint track.
    const QColor top = ringColourAt(image, 0);
    EXPECT_TRUE(isGreen(top)) << "twelve o'clock: " << describe(top);
    for (const double degrees : {45.0, 90.0, 180.0, 270.0}) {
        const QColor colour = ringColourAt(image, degrees);
        EXPECT_TRUE(isGreen(colour)) << degrees << " degrees: " << describe(colour);
    }
    const QColor gap = ringColourAt(image, 340);
    EXPECT_FALSE(isGreen(gap)) << "340 degrees, past 87 %: " << describe(gap);
    // Inside the ring, above its icon, lies the card, not the arc.
    const QColor inside = colourAt(image, kRingCentreX, kRingCentreY - 20);
    EXPECT_FALSE(isGreen(inside)) << "inside the ring: " << describe(inside);
}

// The widget records each new reading in the history and reads the phone's battery health with
// the real idevicediagnostics; `--history` then prints both from the file.
TEST_F(CardCaptureEndToEnd, TheWidgetKeepsTheHistoryAndThePhonesHealth) {
    ASSERT_TRUE(m_bundle->linkDiagnostics());
    const auto phoneFolder = m_folder.path() / "phone";
    std::filesystem::create_directories(phoneFolder);
    const std::string serial = "00008110001A2B3C4D5E6F70";
    const json scenario = {{"devices", json::array({{{"udid", serial},
                                                     {"connection", "usb"},
                                                     {"battery",
                                                      {{"BatteryCurrentCapacity", 64},
                                                       {"BatteryIsCharging", true},
                                                       {"ExternalConnected", true}}}}})}};
    SimulatedIphone phone(phoneFolder, scenario, 60s);
    ASSERT_TRUE(phone.isReady()) << phone.failure();

    ChildProcess widget({m_bundle->executable().string(), "--preview-light"},
                        m_bundle->environment(phone.socketAddress(), m_display),
                        m_folder.path() / "tovrin.log");
    ASSERT_TRUE(widget.isStarted());
    // The health is read once the phone read has ended: wait for its request, then for the
    // file that keeps it.
    const auto healthFile = m_bundle->dataHome() / "Ambrel" / "battery-health.json";
    // A read and then a health read, each of several tool runs: on a busy machine that takes
    // its time.
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (!std::filesystem::exists(healthFile) && std::chrono::steady_clock::now() < deadline &&
           !widget.hasEnded()) {
        std::this_thread::sleep_for(100ms);
    }
    ASSERT_TRUE(std::filesystem::exists(healthFile))
        << "no health read; the widget " << (widget.hasEnded() ? "ended" : "kept running");
    widget.stop();
    EXPECT_EQ(phone.stats()["devices"][serial]["diagnosticsRequests"]["IORegistry"], 1);

    const auto history =
        m_bundle->run({"--history", "--json"}, phone.socketAddress(), std::chrono::seconds(30));
    ASSERT_EQ(history.exitCode, 0) << history.err;
    const auto report = json::parse(history.out, nullptr, false);
    ASSERT_TRUE(report.is_object()) << history.out;
    std::vector<json> phoneRows;
    for (const auto& row : report["rows"]) {
        if (row["device"] == "iphone") {
            phoneRows.push_back(row);
        }
    }
    ASSERT_EQ(phoneRows.size(), 1u) << history.out;
    EXPECT_EQ(phoneRows[0]["percentage"], 64);
    EXPECT_EQ(phoneRows[0]["isCharging"], true);
    EXPECT_EQ(phoneRows[0]["link"], "USB");
    EXPECT_EQ(report["health"]["iphone"],
              (json{{"maximumCapacity", 87}, {"cycleCount", 412}, {"temperature", 30.5}}));
}

} // namespace
} // namespace ambrel::testing
