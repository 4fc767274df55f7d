/// @file
/// SDO transfers that do not wait: objects of any length read and written, one transfer per node at a time, as many
/// nodes at once as there are (CiA 301, 7.2.4).
///
/// The client asks on 0x600 + node, the node answers on 0x580 + node, in frames of eight bytes. Byte 0 says what a
/// frame is, bytes 1 to 3 name the object (index, low byte first; subindex) in the first request and its answer:
///
/// | Transfer  | The client sends                                  | The node answers                              |
/// |-----------|---------------------------------------------------|-----------------------------------------------|
/// | expedited | 40, or 2F 2B 27 23 with 1 to 4 bytes              | 4F 4B 47 43 with 1 to 4 bytes, or 60          |
/// | segmented | 40 or 21; then 60 and 70 in turn, or 7 bytes each | 41 or 60; then 7 bytes each, or 20 and 30     |
/// | block     | A4 or C6; then up to 127 segments of 7 bytes      | C6 or A4; then A2: how many came in order     |
/// | any       | 80 with a code, at any time: aborted              | the same                                      |
///
/// In a block transfer segments are not answered one by one: the receiver confirms up to 127 of them at once, those
/// that were lost are sent again, and a CRC over all data ends it. That is what makes it fast.
///
/// @code
/// ObservedDriver driver(bus);
/// SdoClient sdo(driver);                       // observes from now on
/// std::uint32_t type = 0;                      // filled by and by: must live until the end
/// sdo.start_read({5, 0x1000, 0}, &type, sizeof type, [](const SdoResult& result) {
///     std::printf("%s, %llu bytes\n", result.words(), static_cast<unsigned long long>(result.bytes));
/// });
/// for (;;) {
///     pollfd entry{bus.descriptor(), POLLIN, 0};
///     poll(&entry, 1, milliseconds_until(sdo.next_deadline(), monotonic_ns()));
///     master.read_all_messages();              // or driver.read_all(): the answers reach the client
///     sdo.process(monotonic_ns());             // time-outs, and what could not be sent before
/// }
/// @endcode
///
/// A frame is taken for an answer only if node, object, toggle bit, sequence number and the state of the transfer say
/// so. Frames that are late, doubled or meant for somebody else are counted and dropped; a wrong answer ends the
/// transfer with an abort to the node. A request is sent once: a node that is only slow would execute a repeated one
/// twice. The one doubled frame that cannot be told is the confirmation of a full block of a write, which is like the
/// next one: it may cost the transfer, and the node finds by the CRC whether data are missing.
///
/// Nothing is allocated after construction. There is no locking: client, driver and callbacks belong to one thread.

#ifndef NODEVIK_NODES_SDOCLIENT_H
#define NODEVIK_NODES_SDOCLIENT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "nodevik/observeddriver.h"
#include "nodevik/util/export.h"

/// An object of a node.
struct SdoObject {
    unsigned int node = 0;      ///< 1 to 127
    std::uint16_t index = 0;    ///< of the object
    std::uint8_t subindex = 0;  ///< of the entry
};

/// How a transfer has ended.
enum class SdoOutcome : unsigned char {
    done,               ///< all data have passed
    aborted_by_node,    ///< the node sent an abort
    aborted_by_client,  ///< an answer was wrong, or the data did not fit: an abort was sent to the node
    timed_out,          ///< the node did not answer in time: an abort was sent to it
    driver_failed,      ///< the driver took no frame until the time-out
    cancelled           ///< cancel() was called: an abort was sent if the node knew of the transfer
};

/// The end of a transfer.
struct NODEVIK_EXPORT SdoResult {
    SdoOutcome outcome = SdoOutcome::cancelled;  ///< how it has ended
    SdoObject object;                            ///< what was read or written
    std::uint32_t abort_code = 0;  ///< of the node's abort, or of the one meant for the node; 0 without one
    std::uint64_t bytes = 0;       ///< data bytes that were delivered or confirmed
    bool by_blocks = false;        ///< it went as a block transfer

    /// Whether all data have passed.
    bool ok() const { return outcome == SdoOutcome::done; }

    /// The outcome in words: of an abort the words of its code.
    /// @return text with static storage, never null
    const char* words() const;
};

/// The length of data whose length nobody knows beforehand.
inline constexpr std::uint64_t sdo_unknown_size = UINT64_MAX;

/// Where data that are written come from, piece by piece. It lives until the transfer has ended. It neither reads the bus
/// nor cancels the transfer: it tells a failure instead.
class NODEVIK_EXPORT SdoSource {
public:
    /// How many bytes there are. Tell it whenever it is known: some nodes refuse what is announced without a length.
    /// @return the number, or sdo_unknown_size
    virtual std::uint64_t size() const = 0;

    /// Hands out the next bytes.
    ///
    /// @param room  takes the bytes
    /// @param size  room in it, at least 1
    /// @return number of bytes stored, at most @p size; 0 at the end of the data; negative when they cannot be had:
    ///         the transfer is aborted with 0x08000020
    virtual long read(unsigned char* room, std::size_t size) = 0;

protected:
    SdoSource() = default;
    SdoSource(const SdoSource&) = default;             ///< there is nothing to copy
    SdoSource& operator=(const SdoSource&) = default;  ///< there is nothing to copy
    ~SdoSource() = default;
};

/// Where data that are read go to, piece by piece. It lives until the transfer has ended. It neither reads the bus nor
/// cancels the transfer: it tells a failure instead.
class NODEVIK_EXPORT SdoSink {
public:
    /// The node has answered; data follow.
    ///
    /// The argument is how many bytes the node has announced, or sdo_unknown_size.
    /// @return true to take them; false aborts the transfer with 0x05040005
    virtual bool begin(std::uint64_t /*size*/) { return true; }

    /// Takes the next bytes, in order, each once. Of a block transfer they are known to be right only when the
    /// transfer has ended well: the CRC comes last.
    ///
    /// @param bytes  the bytes
    /// @param size   their number, 1 to 889
    /// @return true; false aborts the transfer with 0x05040005
    virtual bool write(const unsigned char* bytes, std::size_t size) = 0;

protected:
    SdoSink() = default;
    SdoSink(const SdoSink&) = default;             ///< there is nothing to copy
    SdoSink& operator=(const SdoSink&) = default;  ///< there is nothing to copy
    ~SdoSink() = default;
};

/// Which kind of transfer is used for what does not fit into one frame.
enum class SdoMode : unsigned char {
    automatic,  ///< blocks if more than 112 bytes may pass and the node is not known to refuse them
    segmented,  ///< never blocks
    block       ///< blocks, whatever the length; a node that refuses them is asked again by segments
};

/// How a transfer goes. The defaults suit a node in its usual state.
struct SdoOptions {
    /// Which kind of transfer is used for what does not fit into one frame.
    SdoMode mode = SdoMode::automatic;

    /// Longest wait for each answer, in milliseconds. It begins again with every frame of the transfer.
    unsigned int timeout_ms = 500;

    /// Longest wait for the answer to the first and to the last request, in milliseconds: there a node may have to
    /// erase or to store. 0: timeout_ms.
    unsigned int slow_timeout_ms = 0;

    /// Block transfers: whether a CRC is offered to the node. Some old nodes calculate another one.
    bool crc = true;

    /// Block reads: most segments that the node sends without a confirmation, 1 to 127; others are taken for 127.
    unsigned int block_size = 127;

    /// Block reads: an object of at most this many bytes may come as an ordinary transfer, which is shorter then;
    /// 0 to 255, 0 never.
    unsigned int switch_threshold = 112;

    /// Called when data have been delivered or confirmed, with the number of bytes so far and of all, or
    /// sdo_unknown_size. It may read the bus, and cancel the transfer; its time is not the node's.
    std::function<void(std::uint64_t bytes, std::uint64_t total)> progress;
};

/// Called once when a transfer has ended. It may start the next one, also with the same node, and cancel others. It does
/// not destroy the client.
///
/// A function object of up to two pointers (a lambda that captures `this`, say) needs no memory.
using SdoCallback = std::function<void(const SdoResult& result)>;

/// The transfers with the nodes of a bus.
class NODEVIK_EXPORT SdoClient : public FrameObserver {
public:
    /// Frames that were on an SDO answer's identifier, 0x581 to 0x5FF, and were not taken.
    struct Dropped {
        std::uint64_t unexpected = 0;    ///< no transfer with that node waits for an answer
        std::uint64_t foreign = 0;       ///< about another object: late, or the answer to somebody else
        std::uint64_t doubled = 0;       ///< the last answer, or a segment, once more
        std::uint64_t malformed = 0;     ///< not of 8 bytes
        std::uint64_t out_of_order = 0;  ///< segments of a block behind a lost one; they are sent again
    };

    /// What is written is copied when the transfer starts, up to this many bytes.
    static constexpr std::size_t copied_bytes = 889;

    /// Begins to observe.
    ///
    /// Ends the process by an assertion when the driver has 8 observers already.
    ///
    /// @param driver  frames are sent through it; it outlives the client
    explicit SdoClient(ObservedDriver& driver);

    /// Ends every transfer as cancel() does, and ceases to observe.
    ~SdoClient();

    SdoClient(const SdoClient&) = delete;
    SdoClient& operator=(const SdoClient&) = delete;

    /// @name Starting a transfer
    /// The first frame is sent at once; the callback is never called from within the call that starts.
    ///
    /// @retval 0   the transfer has started: the callback will be called, once
    /// @retval -1  it has not, and the callback will not be called: the node number is not 1 to 127, a transfer with
    ///             the node is under way (busy()), or the memory is null and its size is not 0
    /// @{

    /// Reads an object into memory.
    /// @param object   what to read
    /// @param room     takes the bytes, least significant one first for numbers; it lives until the end
    /// @param size     bytes of room; a longer object aborts the transfer with 0x05040005. An answer of up to four bytes
    ///                 that does not tell how many is as long as the room
    /// @param callback called at the end, may be empty
    /// @param options  how to transfer
    int start_read(const SdoObject& object, void* room, std::size_t size, SdoCallback callback,
                   SdoOptions options = {});

    /// Reads an object of any length, piece by piece.
    int start_read(const SdoObject& object, SdoSink& sink, SdoCallback callback, SdoOptions options = {});

    /// Writes an object from memory.
    /// @param object   what to write
    /// @param data     the bytes, least significant one first for numbers. Up to copied_bytes are copied at once; more
    ///                 than that must live until the end. May be null when @p size is 0
    /// @param size     their number, any
    /// @param callback called at the end, may be empty
    /// @param options  how to transfer
    int start_write(const SdoObject& object, const void* data, std::size_t size, SdoCallback callback,
                    SdoOptions options = {});

    /// Writes an object of any length, piece by piece.
    int start_write(const SdoObject& object, SdoSource& source, SdoCallback callback,
                    SdoOptions options = {});
    /// @}

    /// @name Waiting for a transfer, for programs without a loop
    /// The calls read the bus themselves until the transfer has ended (see set_reader()); other transfers go on
    /// meanwhile. A transfer that cannot start ends as cancelled.
    /// @{
    SdoResult read(const SdoObject& object, void* room, std::size_t size, SdoOptions options = {});
    SdoResult read(const SdoObject& object, SdoSink& sink, SdoOptions options = {});
    SdoResult write(const SdoObject& object, const void* data, std::size_t size, SdoOptions options = {});
    SdoResult write(const SdoObject& object, SdoSource& source, SdoOptions options = {});

    /// Has the waiting calls read the bus otherwise than by ObservedDriver::read_all(): for a program with a master
    /// `[&master] { master.read_all_messages(); }`, so that its PDOs are served meanwhile.
    void set_reader(std::function<void()> reader);
    /// @}

    /// Ends the transfer with a node: an abort 0x08000000 is sent if the node knows of it, and the callback called.
    void cancel(unsigned int node);

    /// Whether a transfer with a node is under way.
    bool busy(unsigned int node) const;

    /// Number of transfers that are under way.
    unsigned int active() const { return active_count; }

    /// Looks after the time: ends what has timed out, sends what the driver could not take before, and the next
    /// segments when sending is paced.
    ///
    /// @param now_ns  the time, see monotonic_ns()
    void process(std::uint64_t now_ns);

    /// When process() is to be called next, at the latest.
    /// @return nanoseconds of CLOCK_MONOTONIC; no_deadline when no transfer is under way
    std::uint64_t next_deadline() const;

    /// Paces the segments of block writes, for a driver with a short queue and a loop that must not stand still:
    /// @p frames at a time, then a pause. At the start there is no pause.
    ///
    /// @param frames    segments that are sent at once, at least 1
    /// @param pause_us  microseconds until the next ones are
    void set_pace(unsigned int frames, unsigned int pause_us);

    /// Whether a node has refused a block transfer and then done the same by segments. A boot-up of the node makes
    /// the client forget it.
    bool refuses_blocks(unsigned int node) const;

    /// Frames that were not taken.
    const Dropped& dropped() const { return dropped_frames; }

    /// Takes the answers. Called by the driver.
    void frame_passed(const ObservedFrame& frame) override;

private:
    struct Course;
    struct NODEVIK_LOCAL Transfer;
    enum class Answer : unsigned char;

    NODEVIK_LOCAL Transfer* begin(const SdoObject& object, SdoCallback& callback, SdoOptions& options);
    NODEVIK_LOCAL void begin_read(Transfer& t);
    NODEVIK_LOCAL void begin_write(Transfer& t);
    NODEVIK_LOCAL SdoResult wait(const SdoObject& object, int started, const SdoResult& result,
                                 const bool& ended);

    NODEVIK_LOCAL void send_initiate(Transfer& t);
    NODEVIK_LOCAL void request_segment(Transfer& t);
    NODEVIK_LOCAL void send_segment(Transfer& t);
    NODEVIK_LOCAL void begin_block(Transfer& t, unsigned int size);
    NODEVIK_LOCAL void send_block_segments(Transfer& t);
    NODEVIK_LOCAL void confirm_segments(Transfer& t);
    NODEVIK_LOCAL void send(Transfer& t, const std::array<unsigned char, 8>& frame);
    NODEVIK_LOCAL bool write(const Transfer& t, std::array<unsigned char, 8>& frame);

    NODEVIK_LOCAL void take(Transfer& t, const unsigned char* frame);
    NODEVIK_LOCAL Answer judge_initiate(const Transfer& t, const unsigned char* frame) const;
    NODEVIK_LOCAL Answer judge_segment(const Transfer& t, const unsigned char* frame,
                                       unsigned char specifier) const;
    NODEVIK_LOCAL Answer judge_wrong(const Transfer& t, const unsigned char* frame) const;
    NODEVIK_LOCAL Answer judge_block_end(const Transfer& t, const unsigned char* frame) const;
    NODEVIK_LOCAL bool accept(Transfer& t, const unsigned char* frame, Answer answer);
    NODEVIK_LOCAL void reject(Transfer& t, const unsigned char* frame, Answer answer);
    NODEVIK_LOCAL void take_abort(Transfer& t, const unsigned char* frame);
    NODEVIK_LOCAL void take_upload_answer(Transfer& t, const unsigned char* frame);
    NODEVIK_LOCAL void take_upload_segment(Transfer& t, const unsigned char* frame);
    NODEVIK_LOCAL void take_download_answer(Transfer& t);
    NODEVIK_LOCAL void take_download_confirmation(Transfer& t);
    NODEVIK_LOCAL void take_block_upload_answer(Transfer& t, const unsigned char* frame);
    NODEVIK_LOCAL void take_block_segment(Transfer& t, const unsigned char* frame);
    NODEVIK_LOCAL void take_block_upload_end(Transfer& t, const unsigned char* frame);
    NODEVIK_LOCAL void take_block_download_answer(Transfer& t, const unsigned char* frame);
    NODEVIK_LOCAL void take_block_confirmation(Transfer& t, const unsigned char* frame);

    NODEVIK_LOCAL bool expect(Transfer& t, std::uint64_t size);
    NODEVIK_LOCAL bool deliver(Transfer& t, const unsigned char* bytes, std::size_t count);
    NODEVIK_LOCAL bool report_progress(Transfer& t);
    NODEVIK_LOCAL bool tell_progress(Transfer& t);
    NODEVIK_LOCAL bool ask_by_segments(Transfer& t);
    NODEVIK_LOCAL void abort(Transfer& t, SdoOutcome outcome, std::uint32_t code);
    void refuse(Transfer& t, std::uint32_t code) { abort(t, SdoOutcome::aborted_by_client, code); }
    NODEVIK_LOCAL void finish(Transfer& t, SdoOutcome outcome, std::uint32_t code);
    NODEVIK_LOCAL void look_after(Transfer& t);
    NODEVIK_LOCAL void time_out(Transfer& t);

    ObservedDriver* driver;
    std::unique_ptr<Transfer[]> transfers;  // by node number
    std::function<void()> reader;
    Dropped dropped_frames;
    std::array<std::uint64_t, 2> active_nodes{};  // a bit each
    unsigned int active_count = 0;
    std::uint64_t now = 0;  // of the call under way
    unsigned int pace_frames = 0;
    std::uint64_t pace_ns = 0;
    bool closing = false;
};

#endif
