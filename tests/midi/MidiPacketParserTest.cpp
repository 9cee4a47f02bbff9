// The packet-list layout and its fixed reading: the advance table, no running status, system
// bytes, alignment, and lists that lie about their sizes.

#include "midi/MidiPacketParser.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "midi/MidiMessages.h"
#include "platform/midi/MIDIPacketList.h"

namespace {

// status, channel, data1, data2, time stamp
using Forwarded = std::tuple<std::uint8_t, std::uint8_t, std::uint8_t, std::uint8_t, std::uint64_t>;

// A list holding one packet per entry of `packets`, time stamps 100, 101, ...
std::vector<std::uint8_t> listOf(const std::vector<std::vector<std::uint8_t>>& packets) {
  std::vector<std::uint8_t> buffer(1024);
  midi::PacketListBuilder builder(buffer.data(), buffer.size());
  std::uint64_t time = 100;
  for (const auto& packet : packets) {
    EXPECT_TRUE(builder.add(time++, packet.data(), static_cast<std::uint16_t>(packet.size())));
  }
  buffer.resize(builder.size());
  return buffer;
}

std::vector<Forwarded> parse(const std::vector<std::uint8_t>& list, int channel) {
  std::vector<Forwarded> out;
  midi::parsePacketList(
      list.data(), list.size(), [&] { return channel; },
      [&](std::uint8_t s, std::uint8_t c, std::uint8_t d1, std::uint8_t d2, std::uint64_t t) {
        out.push_back({s, c, d1, d2, t});
      });
  return out;
}

// The channel filter is the packet-list fuzzer's (every setting; a clock byte alone counts as
// channel 9), and the setting reaching the reading is MidiEventRouterTest's and MidiOverJack's.
TEST(MidiPacketParser, HasNoRunningStatusAndSkipsByTheAdvanceTable) {
  EXPECT_EQ(parse(listOf({{0x90, 0x3C, 0x64, 0x3E, 0x64}}), 0),
            (std::vector<Forwarded>{{0x90, 0, 0x3C, 0x64, 100}}));
  // Program change advances 2, song position 3, a clock byte 1; data after SysEx is skipped to
  // the next status byte (0xF7 is one too, forwarded as 0xF0).
  EXPECT_EQ(
      parse(listOf({{0xC1, 0x05, 0xF2, 0x10, 0x20, 0xF8, 0xF0, 0x7E, 0x7F, 0xF7, 0xB0, 1, 2}}), 0),
      (std::vector<Forwarded>{{0xC0, 1, 0x05, 0xF2, 100},
                              {0xF0, 2, 0x10, 0x20, 100},
                              {0xF0, 8, 0xF0, 0x7E, 100},
                              {0xF0, 0, 0x7E, 0x7F, 100},
                              {0xF0, 7, 0xB0, 0x01, 100},
                              {0xB0, 0, 0x01, 0x02, 100}}));
}

TEST(MidiPacketParser, PacketsOfOddLengthsStartOnMultiplesOfFour) {
  // Bytes read past a packet are its padding, or zeros past the list.
  const auto list =
      listOf({{0x90, 60, 1}, {0x80, 60, 2, 0xF8}, {0xC0, 7}, {}, {0x91, 61, 3, 0xF8, 0xFE}});
  EXPECT_EQ(parse(list, 0), (std::vector<Forwarded>{{0x90, 0, 60, 1, 100},
                                                    {0x80, 0, 60, 2, 101},
                                                    {0xF0, 8, 0, 0, 101},
                                                    // the byte after it is the next
                                                    // packet's time stamp (103), as it stands
                                                    {0xC0, 0, 7, 103, 102},
                                                    {0x90, 1, 61, 3, 104},
                                                    {0xF0, 8, 0xFE, 0, 104},
                                                    {0xF0, 14, 0, 0, 104}}));
}

TEST(MidiPacketParser, ListsThatClaimMoreThanTheyHoldAreReadOnlyInside) {
  // Any count and lengths stay inside under the packet-list fuzzer; a list that claims more than it
  // holds still gives what it holds.
  auto list = listOf({{0x90, 60, 100}});
  std::uint32_t count = 1000;
  std::memcpy(list.data(), &count, sizeof count);  // far more packets than there are
  std::uint16_t length = 60000;
  std::memcpy(list.data() + 4 + 8, &length, sizeof length);  // far more data than there is
  const auto forwarded = parse(list, 0);
  ASSERT_FALSE(forwarded.empty());
  EXPECT_EQ(forwarded[0], (Forwarded{0x90, 0, 60, 100, 100}));
  EXPECT_TRUE(parse(std::vector<std::uint8_t>{1, 0, 0}, 0).empty());  // shorter than a count
}

TEST(MidiPacketListBuilder, RefusesWhatDoesNotFitWithItsSlack) {
  std::uint8_t buffer[4 + 10 + 3 + 2];
  midi::PacketListBuilder builder(buffer, sizeof buffer);
  const std::uint8_t note[] = {0x90, 60, 100};
  EXPECT_TRUE(builder.add(7, note, 3));
  EXPECT_FALSE(builder.add(8, note, 1));
  EXPECT_EQ(builder.count(), 1u);
  EXPECT_EQ(builder.size(), sizeof buffer);
  EXPECT_EQ(buffer[sizeof buffer - 1], 0);
  EXPECT_EQ(buffer[sizeof buffer - 2], 0);
}

// The ends the router test does not send: a negative velocity gives no byte above 127, and the mod
// wheel's top stays a data byte.
TEST(MidiMessages, NegativeVelocityAndTheModWheelsTopAreDataBytes) {
  EXPECT_EQ(midi::noteOnMessage(60, -0.5f), (midi::ChannelMessage{0x90, 60, 0}));
  EXPECT_EQ(midi::modWheelMessage(1.0f), (midi::ChannelMessage{0xB0, 0x01, 0x7F}));
}

}  // namespace
