#pragma once
// An in-memory ring of compact event records: the short history of
// important events (programming decisions, zombie timers, table-full
// episodes) that is still there after the fact, when full tracing was off.
//
// The ring has a fixed capacity; once full, each new record overwrites the
// oldest. Records carry the event loop's time (0 outside one), a source
// (the operation that wrote it) and a text. Recording can be switched off
// process-wide; RING_TRACE then costs one branch and formats nothing.
//
// Single-threaded, like the event loop that writes it.
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstring>
#include <new>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/vex/Export.h"
#include "platform/vex/Types.h"

class FALMROUTE_EXPORT RingTrace {
 public:
  static constexpr std::size_t kDefaultCapacity = 4096;

  struct Record {
    Vex::Seconds time = 0;
    std::string source;
    std::string text;
  };

  explicit RingTrace(std::size_t capacity = kDefaultCapacity);

  // The process-wide ring that RING_TRACE writes to.
  static RingTrace& instance();

  // The process-wide switch; on by default.
  static bool enabled() noexcept { return enabled_; }
  static void enabledIs(bool on) noexcept { enabled_ = on; }

  // Appends a record, overwriting the oldest when full. Does nothing while
  // recording is switched off.
  void record(std::string_view source, std::string text);
  // The same, copying text into the overwritten record's buffer, so a full
  // ring records without allocating.
  void recordView(std::string_view source, std::string_view text);

  // For RING_TRACE: the text buffer of the next record, to format into
  // (RingTraceText empties it); commitNext then writes the record with a
  // source that is a string literal (kept by address, not copied). Between
  // the two nothing else may record. Neither checks enabled().
  std::string& nextText() { return copies_[head_].text; }
  void commitNext(std::string_view literalSource) {
    Slot& r = ring_[head_];
    r.time = currentTime();
    r.literalSource = literalSource;
    r.copiedSource = false;
    r.textKind = TextKind::copied;
    finishNext();
  }
  // For RING_TRACE_TEXT: a record whose source and text are both string
  // literals, kept by address: nothing is copied. Does not check enabled().
  void recordLiterals(std::string_view literalSource, std::string_view literalText) {
    Slot& r = ring_[head_];
    r.time = currentTime();
    r.literalSource = literalSource;
    r.literalText = literalText;
    r.copiedSource = false;
    r.textKind = TextKind::literal;
    finishNext();
  }

  // For the hottest paths: a record that keeps value, a copy of its bytes,
  // and makes its text with Format(text, value) only when the ring is read,
  // so the event costs a copy rather than the formatting. The source is a
  // string literal, kept by address. Does not check enabled().
  static constexpr std::size_t kValueBytes = 48;
  template <class T, void (*Format)(std::string&, T const&)>
    requires std::is_trivially_copyable_v<T> && (sizeof(T) <= kValueBytes) && (alignof(T) <= 8)
  void recordValue(std::string_view literalSource, T const& value) {
    recordValueInPlace<T, Format>(literalSource, [&](T& made) { made = value; });
  }

  // The same, with the value made in the record's own bytes: fill(value) sets
  // the fields of a value-initialized T there. A value built on the stack and
  // copied in is read back while its narrow stores are still on their way to
  // the cache, and that copy stalls; the fields stored in place are not read.
  template <class T, void (*Format)(std::string&, T const&), class Fill>
    requires std::is_trivially_copyable_v<T> && (sizeof(T) <= kValueBytes) && (alignof(T) <= 8)
  void recordValueInPlace(std::string_view literalSource, Fill&& fill) {
    Slot& r = ring_[head_];
    r.time = currentTime();
    r.literalSource = literalSource;
    r.copiedSource = false;
    r.textKind = TextKind::value;
    r.formatValue = &formatValueAs<T, Format>;
    fill(*::new (static_cast<void*>(r.value)) T{});
    finishNext();
  }

  // Oldest first.
  std::vector<Record> records() const;
  std::size_t size() const { return size_; }
  std::size_t capacity() const { return ring_.size(); }
  // Records written since the ring was made or cleared, overwritten ones included.
  std::size_t recorded() const { return recorded_; }
  // Whether any record's text contains text.
  bool contains(std::string_view text) const;
  void clear();
  // Changes the capacity (at least 1), keeping the newest records that fit.
  void capacityIs(std::size_t capacity);

 private:
  using FormatValue = void (*)(std::string&, unsigned char const*);
  template <class T, void (*Format)(std::string&, T const&)>
  static void formatValueAs(std::string& out, unsigned char const* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    Format(out, value);
  }

  // A record as the ring keeps it: a literal source or text by address, a
  // value to format when read, any other copied (so RING_TRACE, on hot paths,
  // copies nothing but its text, and RING_TRACE_TEXT nothing at all).
  //
  // The events that record are the hot paths of route programming, and the
  // slot they overwrite was last written thousands of records ago, so it is
  // seldom in cache. A record therefore only writes its slot and never reads
  // it (a load that misses holds the event up; a store waits in the store
  // buffer), and a slot is 104 bytes rather than the 160 it took with its
  // strings. Copied texts live apart, in copies_, and are left in place when
  // a record of another kind takes their slot: the kinds say which of the
  // slot's fields hold the record. (Slots aligned to whole lines, 128 bytes,
  // made the share lookup's bench slower, not faster.)
  enum class TextKind : unsigned char { literal, copied, value };
  struct Slot {
    Vex::Seconds time = 0;
    std::string_view literalSource;     // the source, unless copiedSource
    std::string_view literalText;       // the text of a TextKind::literal record
    FormatValue formatValue = nullptr;  // formats value, for TextKind::value
    bool copiedSource = false;          // the source is the copy in copies_
    TextKind textKind = TextKind::literal;
    alignas(8) unsigned char value[kValueBytes];
  };
  static_assert(sizeof(Slot) == 104, "a record writes 104 bytes: keep new fields out of the hot slot");
  struct Copies {
    std::string source;
    std::string text;
  };

  std::string_view sourceOf(std::size_t at) const {
    Slot const& r = ring_[at];
    return r.copiedSource ? std::string_view(copies_[at].source) : r.literalSource;
  }
  // The text, made in scratch when the record holds a value.
  std::string_view textOf(std::size_t at, std::string& scratch) const;

  std::size_t slot(std::size_t age) const { return (head_ + ring_.size() - size_ + age) % ring_.size(); }
  // Starts a record with a copied source and text; returns its text buffer.
  std::string& startCopied(std::string_view source);
  void finishNext() {
    if (++head_ == ring_.size()) head_ = 0;
    if (size_ < ring_.size()) ++size_;
    ++recorded_;
  }
  // The event loop's time, 0 outside one.
  static Vex::Seconds currentTime();

  static inline bool enabled_ = true;
  // Where ringTrace() formats a record before copying it into the ring.
  static inline std::string scratch_;
  friend class RingTraceText;
  std::vector<Slot> ring_;
  std::vector<Copies> copies_;  // beside ring_, slot for slot
  std::size_t head_ = 0;  // where the next record goes
  std::size_t size_ = 0;
  std::size_t recorded_ = 0;
};

// Formats streamed pieces exactly as a freshly made std::ostringstream
// would, into the ring's scratch buffer, without making one: building and
// tearing down a stream (and its locale) on every record would cost more than
// the event it records. Text, characters, integers and bool are appended
// directly; anything else through its own operator<< on a stream kept per
// thread (see stream()).
// Stream manipulators are refused: a record has no formatting state to carry.
class FALMROUTE_EXPORT RingTraceText {
 public:
  RingTraceText() : out_(RingTrace::scratch_) { out_.clear(); }
  // Formats into out (emptied first).
  explicit RingTraceText(std::string& out) : out_(out) { out_.clear(); }
  RingTraceText(RingTraceText const&) = delete;
  RingTraceText& operator=(RingTraceText const&) = delete;

  std::string_view text() const { return out_; }

 private:
  // A stream made once per thread and reset to a fresh stream's state before
  // each use: making one (and its locale) per piece cost more than the rest
  // of a record.
  static std::ostringstream& stream() {
    static thread_local std::ostringstream os;
    static thread_local std::ios_base::fmtflags const flags = os.flags();
    os.str(std::string());
    os.clear();
    os.flags(flags);
    os.width(0);
    os.precision(6);
    os.fill(' ');
    return os;
  }

 public:

  RingTraceText& operator<<(std::string_view s) {
    out_.append(s);
    return *this;
  }
  RingTraceText& operator<<(char const* s) {
    out_.append(s);
    return *this;
  }
  RingTraceText& operator<<(std::string const& s) {
    out_.append(s);
    return *this;
  }
  // Character types print as characters, as a stream prints them.
  template <class C>
    requires std::same_as<C, char> || std::same_as<C, signed char> || std::same_as<C, unsigned char>
  RingTraceText& operator<<(C c) {
    out_.push_back(static_cast<char>(c));
    return *this;
  }
  // Without boolalpha a stream prints 1 and 0.
  template <class B>
    requires std::same_as<B, bool>
  RingTraceText& operator<<(B b) {
    out_.push_back(b ? '1' : '0');
    return *this;
  }
  template <class I>
    requires std::integral<I> && (!std::same_as<I, bool>) && (!std::same_as<I, char>) &&
             (!std::same_as<I, signed char>) && (!std::same_as<I, unsigned char>) && (sizeof(I) >= sizeof(short))
  RingTraceText& operator<<(I v) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    out_.append(buf, static_cast<std::size_t>(r.ptr - buf));
    return *this;
  }
  template <class T>
    requires(!std::integral<T>) && (!std::is_convertible_v<T const&, std::string_view>) &&
            (!std::is_convertible_v<T const&, char const*>) && (!std::is_function_v<T>)
  RingTraceText& operator<<(T const& v) {
    std::ostringstream& os = stream();
    os << v;
    out_.append(os.view());
    return *this;
  }

 private:
  std::string& out_;
};

// Writes the pieces, streamed in order, as one record of the process-wide
// ring; evaluates every piece but formats nothing while recording is off.
template <class... Pieces>
void ringTrace(std::string_view source, Pieces const&... pieces) {
  if (!RingTrace::enabled()) return;
  RingTraceText text;
  (text << ... << pieces);
  RingTrace::instance().recordView(source, text.text());
}

// RING_TRACE("handleZombie", ", Set timer for zombie oifSetIndex: " << index)
// streams expr into one record of the process-wide ring. Nothing of expr is
// evaluated while recording is off. The source must be a string literal; expr
// is formatted straight into the record's own buffer.
#define RING_TRACE(source, expr)                                                \
  do {                                                                          \
    if (::RingTrace::enabled()) {                                               \
      ::RingTrace& ringTrace_ = ::RingTrace::instance();                        \
      ::RingTraceText ringTraceText_(ringTrace_.nextText());                    \
      ringTraceText_ << expr;                                                   \
      ringTrace_.commitNext(std::string_view("" source, sizeof(source) - 1)); \
    }                                                                           \
  } while (0)

// RING_TRACE_TEXT("doAllocateMtableOifSet", "Foung an existing oif set"): a
// record whose text is a string literal too, for the hottest paths: both are
// kept by address, nothing is formatted or copied.
#define RING_TRACE_TEXT(source, text)                                                        \
  do {                                                                                       \
    if (::RingTrace::enabled()) {                                                            \
      ::RingTrace::instance().recordLiterals(std::string_view("" source, sizeof(source) - 1), \
                                             std::string_view("" text, sizeof(text) - 1));   \
    }                                                                                        \
  } while (0)
