#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "air.h"
#include "channel_list.h"
#include "demultiplexer.h"
#include "scanner.h"
#include "section.h"
#include "testkit/manual_time.h"
#include "tuner.h"

namespace {

using namespace scanner;
using namespace std::chrono_literals;
using namespace tevalon::base::event_dispatcher;

using Lines = std::vector<std::string>;

/// The channel list's answer.
Lines channels() {
    EventHub hub(9);
    const auto request = makeRequest<Channels>(hub, kListChannels);
    EXPECT_EQ(hub.sendEventSync(request, kChannelList, -1), 0);
    const auto* const p_channels = replyOf<Channels>(request);
    return p_channels != nullptr ? *p_channels : Lines{"no answer"};
}

class ScanTest : public testing::Test {
protected:
    /// Scans, and returns what was said of each frequency.
    static Lines scan(const Lines* p_lines, Scanner* p_scanner, const std::vector<int>& places) {
        p_scanner->start(places);
        EXPECT_TRUE(p_scanner->waitForEnd(60s));
        return *p_lines;
    }

    // Written by the scanner's thread, read when the scan has ended, on the clock of the tests.
    Lines m_lines;
    Scanner::Progress m_keep = [this](const std::string& line) { m_lines.push_back(line); };
};

TEST_F(ScanTest, FindsTheServicesOfAFrequency) {
    const Air air = {
        {474, 91, 1ms, {makeSection(0, 1, {{1, "A"}}), makeSection(1, 1, {{2, "B"}})}}};
    const Tuner tuner(air);
    const Demultiplexer demultiplexer;
    const ChannelList list;
    Scanner scanner({60s, 60s}, m_keep);

    EXPECT_EQ(scan(&m_lines, &scanner, {474, 482}),
              (Lines{"474 MHz: services: 2, quality 91 %", "482 MHz: nothing"}));
    EXPECT_EQ(channels(), (Lines{"1 A at 474 MHz", "2 B at 474 MHz"}));
}

TEST_F(ScanTest, AFrequencyThatIsScannedAgainHasItsNewServicesAlone) {
    const ChannelList list;
    EventHub hub(9);
    const auto add = [&hub](int frequencyMhz, const std::vector<Service>& services) {
        (void)hub.sendEvent(makeEvent<Services>(hub, kAddServices, frequencyMhz, services),
                            kChannelList);
    };
    add(474, {{1, "A"}, {2, "B"}});
    add(490, {{3, "C"}});
    add(474, {{4, "D"}});

    EXPECT_EQ(channels(), (Lines{"3 C at 490 MHz", "4 D at 474 MHz"}));
}

TEST_F(ScanTest, BrokenSectionsAreNotTaken) {
    auto broken = makeSection(0, 0, {{1, "A"}});
    broken.back() ^= 1;
    const Air air = {{474, 20, 1ms, {broken}}};
    const Tuner tuner(air);
    const Demultiplexer demultiplexer;
    Scanner scanner({60s, 30s}, m_keep);

    EXPECT_EQ(scan(&m_lines, &scanner, {474}), Lines{"474 MHz: no services"});
}

TEST_F(ScanTest, ATunerThatHangsIsGivenUp) {
    const Air air = {{474, 91, -1ms, {}}};
    const Tuner tuner(air);
    Scanner scanner({30s, 60s}, m_keep);

    EXPECT_EQ(scan(&m_lines, &scanner, {474, 482}),
              (Lines{"474 MHz: the tuner does not answer", "482 MHz: nothing"}));
}

TEST_F(ScanTest, WithoutATunerItEnds) {
    Scanner scanner({60s, 60s}, m_keep);

    EXPECT_EQ(scan(&m_lines, &scanner, {474}), Lines{"474 MHz: there is no tuner"});
}

TEST_F(ScanTest, IsDestroyedInTheMiddle) {
    const Air air = {{474, 91, -1ms, {}}};
    const Tuner tuner(air);
    {
        Scanner scanner({1h, 1h}, m_keep);
        scanner.start({474, 474, 474});
        tevalon::testkit::advance(150min);
        EXPECT_EQ(m_lines, Lines(2, "474 MHz: the tuner does not answer"));
    }
    // The request that is out is called back, and no other is made.
    EXPECT_EQ(m_lines, Lines(3, "474 MHz: the tuner does not answer"));
}

}  // namespace
