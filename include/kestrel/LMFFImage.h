#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <memory>

struct AVFrame;
struct AVPacket;

namespace kestrel {

/// A compressed packet (packet item) or a decoded frame (frame item) with its times.
///
/// Packet queues, pictures handed to the host and copied streams of the file output consist of
/// these. A packet item holds its own reference to the packet. A frame item owns or borrows its
/// frame, see `isOwned`.
///
/// `time_base` and `packet` may be read while another thread sets them; use the rest from one
/// thread at a time.
class KESTREL_API LMFFImage {
 public:
  /// An empty frame item: no frame, all times 0, owning nothing.
  LMFFImage();
  ~LMFFImage();
  LMFFImage(const LMFFImage&) = delete;
  LMFFImage& operator=(const LMFFImage&) = delete;

  /// A frame item that borrows `frame`: the caller keeps it alive and frees it.
  static std::shared_ptr<LMFFImage> imageWithFrame(AVFrame* frame);

  /// A frame item that frees `frame` on destruction if `owned`.
  static std::shared_ptr<LMFFImage> imageWithFrame(AVFrame* frame, bool owned);

  /// A packet item with a reference to the packet's data (a copy, if the data cannot be shared).
  /// Null gives an item with a blank packet.
  static std::shared_ptr<LMFFImage> imageWithPacket(const AVPacket* packet);

  /// The duration of one tick of the packet's or frame's own time stamps, in seconds.
  Rational time_base() const;
  void setTime_base(Rational time_base);

  /// Subtracted from `pkt_display_time`; for a packet read from an `LMFFMedia`, the media's start
  /// time. Microseconds.
  int64_t pkt_time_offset() const;
  void setPkt_time_offset(int64_t offset);

  /// When the item is shown; for a packet read from an `LMFFMedia`, the media's `movie_position`.
  /// Microseconds.
  int64_t pkt_display_time() const;
  void setPkt_display_time(int64_t time);

  /// The decoded frame; null for a packet item. Setting it does not free the previous frame.
  AVFrame* frame() const;
  void setFrame(AVFrame* frame);

  /// The compressed packet, never null; blank if there is none. Setting it makes the item refer to
  /// the data of `packet` (null: a blank packet); holders of the old packet keep it.
  std::shared_ptr<AVPacket> packet() const;
  void setPacket(const AVPacket* packet);

  /// True if the item frees its frame. A packet is always freed with its last holder.
  bool isOwned() const;
  void setIsOwned(bool owned);

  bool is_packet() const;
  void setIs_packet(bool is_packet);

  /// Subtracts `time` from `pkt_display_time`.
  void set_movie_real_start_time(int64_t time);

  /// `pkt_display_time` − `pkt_time_offset`, which is added to the packet's own times.
  /// Microseconds.
  int64_t get_pkt_offset_time() const;

  /// True for a packet item with a key frame packet.
  bool isKeyPacket() const;

  /// Same as `is_packet`.
  bool isPacket() const;

  /// Same as `frame`.
  AVFrame* getFrame() const;

  /// The item's own packet, which may be modified; null for a frame item. Valid until the item is
  /// destroyed or `setPacket` is called.
  AVPacket* getPacket() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
