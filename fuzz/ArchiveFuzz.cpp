#include <kestrel/CodingBase.h>
#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/LMMovieCompositionTrack.h>
#include <kestrel/PropertyList.h>
#include <kestrel/VideoJoiner.h>
#include <kestrel/VideoJoinerItem.h>

#include <malloc.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>
#include <string>
#include <vector>

// Damages archives in every way that it can think of and has them read:
//
//     fuzz_archive SECONDS [SEED]
//
// What the readers answer does not matter; that they come back does, soon and with memory in
// proportion to the file. Build it with a sanitizer.

using namespace kestrel;

namespace {

/// What reading may take: processor time, so that a busy machine does not matter, and memory beside
/// what is in use before.
constexpr int kMostSeconds = 20;
constexpr size_t kSparedBytes = size_t{2} << 20;
constexpr size_t kMostBytesPerByte = 1024;

std::atomic<size_t> bytesInUse{0};
std::atomic<size_t> mostBytes{SIZE_MAX};

[[noreturn]] void endFor(const char* what) {
  std::fputs(what, stderr);
  std::abort();
}

/// Ends the program where reading takes more than it may.
class Bounds {
 public:
  explicit Bounds(size_t size) {
    mostBytes = bytesInUse + kSparedBytes + kMostBytesPerByte * size;
    setTimer(kMostSeconds);
  }
  ~Bounds() {
    mostBytes = SIZE_MAX;
    setTimer(0);
  }
  Bounds(const Bounds&) = delete;
  Bounds& operator=(const Bounds&) = delete;

 private:
  /// The signal that comes when it runs out ends the program.
  static void setTimer(int seconds) {
    itimerval timer{};
    timer.it_value.tv_sec = seconds;
    setitimer(ITIMER_PROF, &timer, nullptr);
  }
};

using Bytes = PropertyList::Data;

class Track : public Coding {
 public:
  CodedValue path, position, more;

  std::string codingName() const override { return "Track"; }
  void encodeWithCoder(KeyedArchiver& archiver) const override {
    archiver.encodeObject(path, "path");
    archiver.encodeObject(position, "position");
    archiver.encodeObject(more, "more");
  }
  static std::shared_ptr<Coding> decode(KeyedUnarchiver& unarchiver) {
    auto track = std::make_shared<Track>();
    track->path = unarchiver.decodeObjectForKey("path");
    track->position = unarchiver.decodeDoubleForKey("position");
    track->more = unarchiver.decodeObjectForKey("more");
    return track;
  }
};

class Settings : public CodingBase {
 public:
  std::string title = "Bars";
  CodedValue more = CodedValue::Array{1, 2};

  std::string codingName() const override { return "Settings"; }
  std::vector<std::string> allCoderKeys() const override { return {"title", "more"}; }
  CodedValue valueForKey(const std::string& key) const override {
    return key == "title" ? CodedValue(title) : more;
  }
  void setValueForKey(const CodedValue& value, const std::string& key) override {
    if (key == "title")
      title = value.text().value_or("");
    else
      more = value;
  }
  static std::shared_ptr<Coding> decode(KeyedUnarchiver& unarchiver) {
    auto settings = std::make_shared<Settings>();
    for (const std::string& key : settings->allCoderKeys()) settings->decoder(unarchiver, key);
    return settings;
  }
};

/// A text that is used so often that all uses together go just beyond what may be read.
PropertyList multiplying() {
  using Uid = PropertyList::Uid;
  using Array = PropertyList::Array;
  using Dictionary = PropertyList::Dictionary;
  return Dictionary{
      {"$archiver", "NSKeyedArchiver"},
      {"$version", 100000},
      {"$top", Dictionary{{"root", Uid{1}}}},
      {"$objects",
       Array{"$null", Dictionary{{"$class", Uid{2}}, {"NS.objects", Array(8000, Uid{3})}},
             Dictionary{{"$classname", "NSArray"}, {"$classes", Array{"NSArray", "NSObject"}}},
             std::string(8000, 'x')}}};
}

CodedValue someJoiner() {
  auto joiner = std::make_shared<VideoJoiner>();
  joiner->setPath("both.mp4");
  joiner->join("one.mp4", 0, 1);
  joiner->join("two.mp4", 12.5, 2);
  return joiner;
}

CodedValue someComposition() {
  auto track = std::make_shared<LMMovieCompositionTrack>();
  track->setPath("Grüße.mp4");
  track->setPosition(1.5);
  return CodedValue::Dictionary{{"tracks", CodedValue::Array{track}},
                                {"streams", CodedValue::Array{1}}};
}

CodedValue someTrack(CodedValue more) {
  auto track = std::make_shared<Track>();
  track->path = "Grüße.mp4";
  track->position = 12.5;
  track->more = std::move(more);
  return track;
}

std::vector<Bytes> seeds() {
  const CodedValue track = someTrack({});
  return {
      KeyedArchiver::archivedDataWithRootObject(CodedValue::Array{track, track, someTrack(track)}),
      KeyedArchiver::archivedDataWithRootObject(
          CodedValue::Dictionary{{"rect", Rect{{1, 2}, {3, 4}}},
                                 {"data", CodedValue::Data(100, 7)},
                                 {"date", CodedValue::Date{5}},
                                 {"list", CodedValue::Array{1, 2.5, true, CodedValue()}}}),
      PropertyList(PropertyList::Array(300, PropertyList("text"))).toData(),
      KeyedArchiver::archivedDataWithRootObject(someJoiner()),
      KeyedArchiver::archivedDataWithRootObject(someComposition()),
      KeyedArchiver::archivedDataWithRootObject(std::make_shared<Settings>()),
      multiplying().toData()};
}

class Mutator {
 public:
  explicit Mutator(uint64_t seed) : random_(seed) {}

  size_t below(size_t limit) { return limit == 0 ? 0 : random_() % limit; }

  void mutate(Bytes& bytes, const std::vector<Bytes>& others) {
    for (size_t times = 1 + below(8); times > 0; --times) mutateOnce(bytes, others);
  }

 private:
  void mutateOnce(Bytes& bytes, const std::vector<Bytes>& others) {
    static constexpr uint8_t kTelling[] = {0x00, 0x01, 0x0F, 0x10, 0x13, 0x14, 0x5F, 0x6F,
                                           0x7F, 0x80, 0x8F, 0xA1, 0xAF, 0xD1, 0xDF, 0xFF};
    if (bytes.empty()) return bytes.push_back(static_cast<uint8_t>(random_()));
    const size_t place = below(bytes.size());
    const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(place);
    switch (below(8)) {
      case 0:
        *at ^= static_cast<uint8_t>(1U << below(8));
        break;
      case 1:
        *at = static_cast<uint8_t>(random_());
        break;
      case 2:
        *at = kTelling[below(std::size(kTelling))];
        break;
      case 3:  // in the trailer and the table, where most is decided
        bytes[bytes.size() - 1 - below(std::min<size_t>(bytes.size(), 64))] =
            kTelling[below(std::size(kTelling))];
        break;
      case 4:
        bytes.resize(place);
        break;
      case 5:
        bytes.insert(at, 1 + below(16), static_cast<uint8_t>(random_()));
        break;
      case 6:
        bytes.erase(at, at + static_cast<std::ptrdiff_t>(
                                 std::min<size_t>(1 + below(16), bytes.size() - place)));
        break;
      default: {
        const Bytes& other = others[below(others.size())];
        const size_t count = std::min({other.size(), bytes.size() - place, below(64)});
        const size_t from = below(other.size() - count + 1);
        std::copy_n(other.begin() + static_cast<std::ptrdiff_t>(from), count, at);
        break;
      }
    }
  }

  std::mt19937_64 random_;
};

/// True when the bytes were read as an archive.
bool read(const Bytes& bytes) {
  const Bounds bounds(bytes.size());
  if (const auto list = PropertyList::fromData(bytes))
    if (!PropertyList::fromData(list->toData())) std::abort();
  try {
    return !KeyedUnarchiver(bytes).rootObject().isNull();
  } catch (const ArchiveError&) {
    return false;
  }
}

}  // namespace

// All memory goes through here and is counted.

void* operator new(size_t size) {
  void* const place = std::malloc(size);
  if (!place) throw std::bad_alloc();
  bytesInUse += malloc_usable_size(place);
  if (bytesInUse > mostBytes) endFor("an archive takes too much memory\n");
  return place;
}

void operator delete(void* place) noexcept {
  if (place) bytesInUse -= malloc_usable_size(place);
  std::free(place);
}

void operator delete(void* place, size_t /*size*/) noexcept { operator delete(place); }

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: fuzz_archive SECONDS [SEED]\n", stderr);
    return 2;
  }
  registerCodingClass("Track", Track::decode);
  registerCodingClass("Settings", Settings::decode);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::atol(argv[1]));
  Mutator mutator(argc > 2 ? std::strtoull(argv[2], nullptr, 10) : std::random_device{}());
  const std::vector<Bytes> originals = seeds();
  for (const Bytes& original : originals) {
    if (!PropertyList::fromData(original)) return 1;
    read(original);
  }

  std::vector<Bytes> pool = originals;  // damaged ones that were still read get damaged further
  constexpr size_t kPoolSize = 500;
  uint64_t runs = 0;
  uint64_t whole = 0;
  do {
    Bytes bytes = pool[mutator.below(pool.size())];
    mutator.mutate(bytes, originals);
    ++runs;
    if (!read(bytes)) continue;
    ++whole;
    if (bytes.size() > 10000) continue;
    if (pool.size() < kPoolSize)
      pool.push_back(std::move(bytes));
    else
      pool[originals.size() + mutator.below(kPoolSize - originals.size())] = std::move(bytes);
  } while (std::chrono::steady_clock::now() < end);
  std::printf("%llu damaged archives, %llu of them read\n", static_cast<unsigned long long>(runs),
              static_cast<unsigned long long>(whole));
  return 0;
}
