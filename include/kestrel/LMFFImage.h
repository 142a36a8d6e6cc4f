#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <memory>

struct AVFrame;
struct AVPacket;

namespace kestrel {

/// Holds exactly one thing that came out of a demuxer or a decoder, with the times that place it:
/// a compressed packet (a packet item) or a decoded frame (a frame item).
///
/// Packet queues, pictures handed to the host and the file output's copied streams are made of
/// these. A packet item keeps a reference of its own to the packet. A frame item owns its frame or
/// only borrows it, as `isOwned` says.
///
/// `time_base` and `packet` may be read while another thread sets them; the rest is used by one
/// thread at a time.
class KESTREL_API LMFFImage {
 public:
  /// An empty frame item: no frame, all times 0, nothing owned.
  LMFFImage();
  ~LMFFImage();
  LMFFImage(const LMFFImage&) = delete;
  LMFFImage& operator=(const LMFFImage&) = delete;

  /// A frame item that borrows `frame`: the caller keeps it alive and frees it.
  static std::shared_ptr<LMFFImage> imageWithFrame(AVFrame* frame);

  /// A frame item that frees `frame` when it goes away, if `owned`.
  static std::shared_ptr<LMFFImage> imageWithFrame(AVFrame* frame, bool owned);

  /// A packet item with a reference to the packet's data (a copy, where the data can't be shared).
  /// Null gives a packet item whose packet is blank, and which owns nothing.
  static std::shared_ptr<LMFFImage> imageWithPacket(const AVPacket* packet);

  /// The unit of the item's own time stamps, in seconds.
  Rational time_base() const;
  void setTime_base(Rational time_base);

  /// What to subtract from `pkt_display_time` for the time relative to the item's stream.
  int64_t pkt_time_offset() const;
  void setPkt_time_offset(int64_t offset);

  /// When the item is shown.
  int64_t pkt_display_time() const;
  void setPkt_display_time(int64_t time);

  /// The decoded frame, null for a packet item. Setting it frees nothing.
  AVFrame* frame() const;
  void setFrame(AVFrame* frame);

  /// The compressed packet, blank while there is none; never null. Setting it makes the item refer
  /// to the data of `packet` instead (null: a blank packet); whoever holds the old one keeps it.
  std::shared_ptr<AVPacket> packet() const;
  void setPacket(const AVPacket* packet);

  /// True if the item frees its frame. Packets are always freed with their last holder.
  bool isOwned() const;
  void setIsOwned(bool owned);

  bool is_packet() const;
  void setIs_packet(bool is_packet);

  /// Moves `pkt_display_time` back by `time`.
  void set_movie_real_start_time(int64_t time);

  /// `pkt_display_time` less `pkt_time_offset`.
  int64_t get_pkt_offset_time() const;

  /// True for a packet item whose packet carries the key flag.
  bool isKeyPacket() const;

  /// `is_packet`.
  bool isPacket() const;

  /// `frame`.
  AVFrame* getFrame() const;

  /// The item's own packet, for use and change in place; null for a frame item. Valid as long as
  /// the item lives and `setPacket` is not called.
  AVPacket* getPacket() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
