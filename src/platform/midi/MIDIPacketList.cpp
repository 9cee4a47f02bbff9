#include "platform/midi/MIDIPacketList.h"

namespace midi {

PacketListBuilder::PacketListBuilder(std::uint8_t* buffer, std::size_t capacity)
    : buffer_(buffer), capacity_(capacity), end_(kPacketCountSize) {
  if (capacity_ >= kPacketCountSize + kPacketListSlack) {
    std::memset(buffer_, 0, kPacketCountSize + kPacketListSlack);
  } else {
    capacity_ = 0;  // too small for even an empty list: nothing will be added
  }
}

bool PacketListBuilder::add(std::uint64_t timeStamp, const std::uint8_t* data,
                            std::uint16_t length) {
  const std::size_t start = alignedTo4(end_);
  const std::size_t dataEnd = start + kPacketHeaderSize + length;
  if (capacity_ == 0 || dataEnd + kPacketListSlack > capacity_) return false;
  std::memset(buffer_ + end_, 0, start - end_);  // padding reads as zero
  std::memcpy(buffer_ + start, &timeStamp, sizeof timeStamp);
  std::memcpy(buffer_ + start + 8, &length, sizeof length);
  if (length) std::memcpy(buffer_ + start + kPacketHeaderSize, data, length);
  std::memset(buffer_ + dataEnd, 0, kPacketListSlack);
  end_ = dataEnd;
  ++count_;
  std::memcpy(buffer_, &count_, sizeof count_);
  return true;
}

}  // namespace midi
