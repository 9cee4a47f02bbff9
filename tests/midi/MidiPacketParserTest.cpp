// The packet-list layout and its fixed reading: channel filter, the advance table, no running
// status, system bytes, alignment, and lists that lie about their sizes.

#include "midi/MidiPacketParser.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "midi/MIDIPacketList.h"
#include "midi/MidiMessages.h"

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

// The channel setting (0 = omni, else 1..16) against the status byte's low bits; a clock byte
// alone is filtered as channel 9 and reads zeros past the list.
TEST(MidiPacketParser, FiltersByChannel) {
  struct Case {
    std::vector<std::uint8_t> packet;
    int channel;
    std::vector<Forwarded> forwarded;
  };
  const std::vector<Forwarded> noteOn{{0x90, 4, 0x3C, 0x64, 100}}, clock{{0xF0, 8, 0, 0, 100}};
  for (const Case& c : std::vector<Case>{{{0x94, 0x3C, 0x64}, 0, noteOn},
                                         {{0x94, 0x3C, 0x64}, 5, noteOn},
                                         {{0x94, 0x3C, 0x64}, 1, {}},
                                         {{0x94, 0x3C, 0x64}, 16, {}},
                                         {{0xF8}, 9, clock},
                                         {{0xF8}, 1, {}}}) {
    EXPECT_EQ(parse(listOf({c.packet}), c.channel), c.forwarded) << "channel " << c.channel;
  }
}

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
  const auto list =
      listOf({{0x90, 60, 1}, {0x80, 60, 2, 0xF8}, {0xC0, 7}, {}, {0x91, 61, 3, 0xF8, 0xFE}});
  // Where each packet starts: 4, then after 10 + 3 bytes rounded up, and so on.
  std::size_t offset = 4;
  for (std::uint16_t length : {3, 4, 2, 0, 5}) {
    EXPECT_EQ(offset % 4, 0u);
    EXPECT_EQ(midi::readUInt16(list.data() + offset + 8), length);
    offset = midi::alignedTo4(offset + midi::kPacketHeaderSize + length);
  }
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

TEST(MidiPacketParser, EmptyListsAndListsThatClaimMoreThanTheyHoldAreReadOnlyInside) {
  EXPECT_TRUE(parse(listOf({{}}), 0).empty());
  EXPECT_TRUE(parse(listOf({}), 0).empty());
  // A negative count (read as signed) is nothing too.
  EXPECT_TRUE(parse(std::vector<std::uint8_t>{0xFF, 0xFF, 0xFF, 0xFF, 0, 0}, 0).empty());
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

// The forms the router test does not already send: nothing is clamped or rounded up.
TEST(MidiMessages, FormsAreExactAndUnclamped) {
  using midi::ChannelMessage;
  EXPECT_EQ(midi::noteOnMessage(60, 0.78125f), (ChannelMessage{0x90, 60, 100}));
  EXPECT_EQ(midi::noteOnMessage(60, -0.5f), (ChannelMessage{0x90, 60, 0}));
  EXPECT_EQ(midi::pitchBendMessage(0.0f), (ChannelMessage{0xE0, 0x00, 0x00}));
  EXPECT_EQ(midi::pitchBendMessage(0.75f), (ChannelMessage{0xE0, 0x00, 0x60}));
  EXPECT_EQ(midi::modWheelMessage(1.0f), (ChannelMessage{0xB0, 0x01, 0x7F}));
}

}  // namespace
