// Network MIDI's wire formats: the session commands and the RTP-MIDI payload (command lists with
// deltas and running status, SysEx in segments, the recovery journal's note offs), read from
// datagrams built here byte by byte, and malformed datagrams that must deliver nothing.

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "platform/midi/network/AppleMidiCommand.h"
#include "platform/midi/network/RtpMidiPayload.h"

namespace {

using namespace rtp_midi;
using Bytes = std::vector<std::uint8_t>;

using Received = std::tuple<std::uint32_t, Bytes>;  // time stamp, message

// A datagram: the RTP header (sequence number, time stamp 1000, SSRC 7), the MIDI section header
// byte(s) for `list` with `flags` (J 0x40, Z 0x20) and then `journal`.
Bytes datagram(std::uint16_t sequence, const Bytes& list, std::uint8_t flags = 0,
               const Bytes& journal = {}) {
  const auto high = static_cast<std::uint8_t>(sequence >> 8);
  const auto low = static_cast<std::uint8_t>(sequence);
  Bytes data{0x80, 0x61, high, low, 0, 0, 0x03, 0xE8, 0, 0, 0, 7};
  if (list.size() > 15) {
    data.push_back(static_cast<std::uint8_t>(0x80 | flags | list.size() >> 8));
    data.push_back(static_cast<std::uint8_t>(list.size()));
  } else {
    data.push_back(static_cast<std::uint8_t>(flags | list.size()));
  }
  data.insert(data.end(), list.begin(), list.end());
  data.insert(data.end(), journal.begin(), journal.end());
  return data;
}

class Stream {
 public:
  PayloadResult read(const Bytes& data) {
    auto collect = [this](std::uint32_t timestamp, const std::uint8_t* bytes, std::size_t length) {
      received.push_back({timestamp, Bytes(bytes, bytes + length)});
    };
    return reader.read(data.data(), data.size(), collect);
  }
  PayloadReader reader;
  std::vector<Received> received;
};

// The other session commands are read back in every exchange of AppleMidiSessionTest, and
// commands too short or unknown are the fuzzer's (it reads and writes back every input).
TEST(SessionCommands, ClockCommandsReadBackAsWrittenAndAsAnotherImplementationSendsThem) {
  std::uint8_t buffer[128];
  SessionCommand clock;
  clock.type = CommandType::clockSync;
  clock.ssrc = 9;
  clock.count = 2;
  clock.timestamps = {1, 0x123456789AULL, 3};
  EXPECT_EQ(writeSessionCommand(clock, buffer, 20), 0u) << "a buffer too small writes nothing";
  const std::size_t size = writeSessionCommand(clock, buffer, sizeof buffer);
  ASSERT_EQ(size, 36u);
  const auto read = readSessionCommand(buffer, size);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->count, 2);
  EXPECT_EQ(read->timestamps, clock.timestamps);
  buffer[8] = 3;  // no count above 2: a session would answer it past its three time stamps
  EXPECT_FALSE(readSessionCommand(buffer, size));
  // A CK0 as another implementation (the npm package rtpmidi) sends it: the first time stamp
  // follows the count's three padding octets.
  const Bytes theirs{0xFF, 0xFF, 'C', 'K', 0x95, 0xF7, 0x7B, 0x5E, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                     0x75, 0x64, 0,   0,   0,    0,    0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  const auto clockZero = readSessionCommand(theirs.data(), theirs.size());
  ASSERT_TRUE(clockZero);
  EXPECT_EQ(clockZero->ssrc, 0x95F77B5Eu);
  EXPECT_EQ(clockZero->count, 0);
  EXPECT_EQ(clockZero->timestamps[0], 0x7564u);
}

// A peer's name is taken as far as it goes, not refused.
TEST(SessionCommands, NamesWithoutTheirEndOrTooLongAreCut) {
  std::uint8_t buffer[128];
  const auto invitation = makeSessionCommand(CommandType::invitation, 1, 2, "Peer");
  const std::size_t size = writeSessionCommand(invitation, buffer, sizeof buffer);
  // A name without its NUL ends at the datagram's end.
  EXPECT_EQ(readSessionCommand(buffer, size - 2)->nameView(), "Pee");
  // A name longer than 64 bytes is cut there.
  Bytes named(16 + 80, 'x');
  std::copy(buffer, buffer + 16, named.begin());
  EXPECT_EQ(readSessionCommand(named.data(), named.size())->nameView().size(), 64u);
}

TEST(Payload, CommandListsWithDeltasRunningStatusAndRealTime) {
  Stream stream;
  // Z: a delta before the first command too. Note on, then (delta 200, two octets) a running-status
  // note on, a timing clock that keeps the running status, and one more running-status note.
  const Bytes list{0x05, 0x91, 60, 100, 0x81, 0x48, 64, 90, 0x00, 0xF8, 0x03, 67, 80};
  ASSERT_EQ(stream.read(datagram(1, list, 0x20)), PayloadResult::ok);
  EXPECT_EQ(stream.received, (std::vector<Received>{{1005, {0x91, 60, 100}},
                                                    {1205, {0x91, 64, 90}},
                                                    {1205, {0xF8}},
                                                    {1208, {0x91, 67, 80}}}));
  EXPECT_TRUE(stream.reader.isSounding(1, 64));
  // A long list (two-byte section header): sixteen note offs by running status.
  Bytes offs{0x81, 60, 0};
  for (int i = 0; i < 7; ++i)
    offs.insert(offs.end(), {0x00, 64, 0});
  stream.received.clear();
  ASSERT_EQ(stream.read(datagram(2, offs)), PayloadResult::ok);
  EXPECT_EQ(stream.received.size(), 8u);
  EXPECT_FALSE(stream.reader.isSounding(1, 64));
}

TEST(Payload, SysExWholeAndInSegmentsAcrossPackets) {
  Stream stream;
  ASSERT_EQ(stream.read(datagram(1, {0xF0, 0x7E, 0x01, 0xF7})), PayloadResult::ok);
  ASSERT_EQ(stream.read(datagram(2, {0xF0, 0x43, 0x10, 0xF0})), PayloadResult::ok);  // first
  ASSERT_EQ(stream.read(datagram(3, {0xF7, 0x20, 0x21, 0xF0})), PayloadResult::ok);  // middle
  ASSERT_EQ(stream.read(datagram(4, {0xF7, 0x22, 0xF7})), PayloadResult::ok);        // last
  ASSERT_EQ(stream.read(datagram(5, {0xF0, 0x01, 0xF0})), PayloadResult::ok);
  ASSERT_EQ(stream.read(datagram(6, {0xF7, 0x02, 0xF4})), PayloadResult::ok);  // cancelled
  ASSERT_EQ(stream.read(datagram(7, {0xF7, 0x03, 0xF7})), PayloadResult::ok);  // no start: dropped
  EXPECT_EQ(stream.received,
            (std::vector<Received>{{1000, {0xF0, 0x7E, 0x01, 0xF7}},
                                   {1000, {0xF0, 0x43, 0x10, 0x20, 0x21, 0x22, 0xF7}}}));
  // A SysEx longer than the stream keeps is not passed on in part.
  stream.received.clear();
  Bytes huge{0xF0};
  huge.insert(huge.end(), 2000, 0x11);
  huge.push_back(0xF0);
  ASSERT_EQ(stream.read(datagram(8, huge)), PayloadResult::ok);
  ASSERT_EQ(stream.read(datagram(9, huge)), PayloadResult::ok);  // restarts: 2001 bytes so far
  huge.front() = 0xF7;
  ASSERT_EQ(stream.read(datagram(10, huge)), PayloadResult::ok);
  huge.back() = 0xF7;
  ASSERT_EQ(stream.read(datagram(11, huge)), PayloadResult::ok);
  EXPECT_TRUE(stream.received.empty());
}

TEST(Payload, MalformedDatagramsDeliverNothing) {
  const std::vector<Bytes> malformed{
      datagram(1, {0x90, 60}),  // a note on cut short
      datagram(1, {60, 100}),   // data with no status
      datagram(1, {0x90, 60, 100, 0x80, 0x80, 0x80, 0x80, 0x01, 0x90, 61, 1}),  // 5-octet delta
      datagram(1, {0x90, 60, 0xB0}),                     // a status byte among the data
      datagram(1, {0xF0, 0x01, 0x02}),                   // SysEx without its end
      datagram(1, {0xF0, 0x01, 0xF4}),                   // a first segment cannot be cancelled
      datagram(1, {0x90, 60, 100}, 0x40, {0x20, 0, 1}),  // a journal claiming a channel it lacks
  };
  for (std::size_t i = 0; i < malformed.size(); ++i) {
    Stream stream;
    EXPECT_EQ(stream.read(malformed[i]), PayloadResult::malformed) << i;
    EXPECT_TRUE(stream.received.empty()) << i;
  }
  Stream stream;
  Bytes cut = datagram(1, {0x90, 60, 100});
  cut[12] = 0x0F;  // the section claims 15 bytes, 3 follow
  EXPECT_EQ(stream.read(cut), PayloadResult::malformed);
  EXPECT_EQ(stream.read(Bytes{0x80, 0x61, 0, 1}), PayloadResult::notRtpMidi);
  EXPECT_EQ(stream.read(Bytes(16, 0x40)), PayloadResult::notRtpMidi);
}

TEST(Payload, AGapIsBridgedByTheJournalsNoteOffsAndLatePacketsAreIgnored) {
  Stream stream;
  ASSERT_EQ(stream.read(datagram(10, {0x92, 60, 100, 0x00, 61, 100})), PayloadResult::ok);
  // Packet 11 (the note offs) is lost. Packet 12's journal, channel 3 (index 2), chapter N with no
  // note logs and OFFBITS for notes 56..63 (LOW = HIGH = 7): 60 and 62 are off.
  const Bytes journal{0x20, 0,    11,           // A, one channel, checkpoint 11
                      0x10, 0x06, 0x08,         // channel 2, length 6, chapter N
                      0x00, 0x77, 0b00001010};  // no logs, LOW 7 HIGH 7, notes 60 and 62
  ASSERT_EQ(stream.read(datagram(12, {0x92, 64, 90}, 0x40, journal)), PayloadResult::ok);
  EXPECT_EQ(stream.reader.lostPackets(), 1u);
  EXPECT_EQ(stream.received.back(), (Received{1000, {0x92, 64, 90}}));
  EXPECT_EQ(stream.received[2], (Received{1000, {0x82, 60, 0}}));  // recovered first
  EXPECT_EQ(stream.received.size(), 4u);  // 62 was not sounding: nothing for it
  EXPECT_FALSE(stream.reader.isSounding(2, 60));
  EXPECT_TRUE(stream.reader.isSounding(2, 61));  // the journal does not say it is off
  // Packet 11 arriving late, and 12 again: already past.
  EXPECT_EQ(stream.read(datagram(11, {0x82, 61, 0})), PayloadResult::ok);
  EXPECT_EQ(stream.read(datagram(12, {0x92, 64, 90})), PayloadResult::ok);
  EXPECT_EQ(stream.received.size(), 4u);
}

// What the writer sends is read back by the sessions' tests and the independent peer.
TEST(Payload, AWriterWithoutRoomOrWithACutMessageWritesNothing) {
  std::uint8_t buffer[64];
  const Bytes commands{0x90, 60, 100, 0x80, 60, 0, 0xB0, 7, 100, 0xC0, 5, 0xE0, 0, 64, 0xF8};
  EXPECT_EQ(writePayload({}, commands.data(), commands.size(), buffer, 20), 0u);
  EXPECT_EQ(writePayload({}, commands.data(), 2, buffer, sizeof buffer), 0u);
}

}  // namespace
