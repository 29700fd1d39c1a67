#include "wire/wire_codec.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

namespace vxpy::wire {

namespace vd = foundation::veltradata;

namespace {

// The smallest description of one array: type, ndims and two dimensions.
constexpr std::uint64_t kMinArrayBytes = 8 + 2 * 8;

// Bytes per element of the types whose elements travel in the data section
// (LOGICAL, CHAR, numeric and complex); 0 for every other type.
std::size_t blockElementSize(int type) {
    return vd::describe(static_cast<vd::ArrayType>(type)).elementSize;
}

// The head of every array in a description.
struct ArrayHead {
    std::int32_t type;
    std::uint16_t ndims;
    std::uint16_t storage;
};
static_assert(sizeof(ArrayHead) == 8);

std::string typeName(int type) {
    return vd::toString(static_cast<vd::ArrayType>(type)) + " (" + std::to_string(type) + ")";
}

[[noreturn]] void fail(const std::string& message) {
    throw WireError(message);
}

}  // namespace

// --- encoding ----------------------------------------------------------------

OutFrame::OutFrame(FrameKind kind, std::uint64_t id, std::uint32_t flags) {
    FrameHeader header;
    header.kind = static_cast<std::uint32_t>(kind);
    header.flags = flags;
    header.id = id;
    // Most frames are a name, a count and a few small arrays: room for them
    // from the start saves growing the buffer on every frame.
    meta_.reserve(256);
    meta_.resize(sizeof header);
    std::memcpy(meta_.data(), &header, sizeof header);
}

void OutFrame::putBytes(const void* bytes, std::size_t count) {
    const auto* first = static_cast<const std::byte*>(bytes);
    meta_.insert(meta_.end(), first, first + count);
}

void OutFrame::putU64(std::uint64_t value) {
    putBytes(&value, sizeof value);
    updateHeader();
}

void OutFrame::putText(std::string_view text) {
    const std::uint64_t size = text.size();
    putBytes(&size, sizeof size);
    putBytes(text.data(), text.size());
    updateHeader();
}

void OutFrame::putArrays(const std::vector<vd::Array>& arrays, BlockExchange* exchange) {
    putU64(arrays.size());
    for (const vd::Array& array : arrays) {
        putArray(array, 1, exchange);
    }
    updateHeader();
    if (totalBytes() - sizeof(FrameHeader) > kMaxFrameBytes) {
        fail("the frame would hold " + std::to_string(totalBytes()) +
             " bytes, beyond the limit of " + std::to_string(kMaxFrameBytes));
    }
}

void OutFrame::putArray(const vd::Array& array, std::uint32_t depth, BlockExchange* exchange) {
    if (depth > kMaxDepth) {
        fail("arrays nested deeper than " + std::to_string(kMaxDepth) + " levels cannot be sent");
    }
    const int type = static_cast<int>(array.getType());
    const std::vector<std::size_t> dims = array.getDimensions();
    if (dims.size() > kMaxDims) {
        fail("an array of " + std::to_string(dims.size()) + " dimensions cannot be sent (at most " +
             std::to_string(kMaxDims) + ")");
    }
    const std::size_t elementSize = blockElementSize(type);
    const std::uint64_t bytes = array.getNumberOfElements() * elementSize;
    std::optional<SharedBlock> shared;
    if (exchange != nullptr && bytes != 0) {
        shared = exchange->lend(array, bytes);
    }
    const ArrayHead head{type, static_cast<std::uint16_t>(dims.size()),
                         static_cast<std::uint16_t>(shared ? shared->storage : Storage::Inline)};
    putBytes(&head, sizeof head);
    for (std::size_t d : dims) {
        putU64(d);
    }
    if (shared) {
        putU64(shared->loan);
        if (shared->storage == Storage::Lent) {
            putU64(shared->chunk);
            putU64(shared->offset);
        }
        return;
    }
    if (elementSize != 0) {
        if (bytes != 0) {
            blocks_.push_back({const_cast<void*>(array.getReadOnlyData()), bytes});
            dataBytes_ += bytes;
        }
        return;
    }
    switch (static_cast<vd::ArrayType>(type)) {
        case vd::ArrayType::VELTRA_STRING:
            for (const vd::VELTRAString& element : vd::TypedArray<vd::VELTRAString>(array)) {
                if (!element) {
                    putU64(kMissingString);
                } else {
                    putU64(element->size());
                    putBytes(element->data(), element->size() * sizeof(char16_t));
                }
            }
            break;
        case vd::ArrayType::CELL:
            for (const vd::Array& element : vd::TypedArray<vd::Array>(array)) {
                putArray(element, depth + 1, exchange);
            }
            break;
        case vd::ArrayType::STRUCT: {
            const vd::StructArray structs(array);
            const std::size_t fieldCount = structs.getNumberOfFields();
            if (fieldCount == 0 && structs.getNumberOfElements() > kMaxBareStructElements) {
                fail("a struct array without fields of more than " +
                     std::to_string(kMaxBareStructElements) + " elements cannot be sent");
            }
            putU64(fieldCount);
            for (const auto& field : structs.getFieldNames()) {
                putText(field.str());
            }
            for (const vd::StructElement& element : structs) {
                for (std::size_t f = 0; f < fieldCount; ++f) {
                    putArray(element[f], depth + 1, exchange);
                }
            }
            break;
        }
        case vd::ArrayType::VALUE_OBJECT:
            for (const vd::ValueObject& element : vd::ValueObjectArray(array)) {
                putU64(element.getId());
            }
            break;
        case vd::ArrayType::HANDLE_OBJECT_REF:
            for (const vd::HandleObjectRef& element : vd::TypedArray<vd::HandleObjectRef>(array)) {
                putU64(element.getId());
            }
            break;
        case vd::ArrayType::ENUM:
            for (const vd::Enumeration& element : vd::EnumArray(array)) {
                putText(element.getName());
            }
            break;
        default:  // a shape without elements
            break;
    }
}

void OutFrame::updateHeader() {
    FrameHeader header;
    std::memcpy(&header, meta_.data(), sizeof header);
    header.metaBytes = meta_.size() - sizeof header;
    header.dataBytes = dataBytes_;
    std::memcpy(meta_.data(), &header, sizeof header);
}

iovec OutFrame::description() const {
    return {const_cast<std::byte*>(meta_.data()), meta_.size()};
}

std::vector<iovec> OutFrame::pieces() const {
    std::vector<iovec> all;
    all.reserve(1 + blocks_.size());
    all.push_back({const_cast<std::byte*>(meta_.data()), meta_.size()});
    all.insert(all.end(), blocks_.begin(), blocks_.end());
    return all;
}

OutFrame helloFrame(std::uint64_t pid, std::uint32_t flags) {
    return OutFrame(FrameKind::Hello, pid, flags);
}

OutFrame requestFrame(std::uint64_t id, std::string_view name, std::uint64_t nlhs,
                      const std::vector<vd::Array>& args, BlockExchange* exchange,
                      std::uint32_t flags) {
    OutFrame frame(FrameKind::Request, id, flags);
    frame.putText(name);
    frame.putU64(nlhs);
    frame.putArrays(args, exchange);
    return frame;
}

OutFrame replyFrame(std::uint64_t id, const std::vector<vd::Array>& values,
                    BlockExchange* exchange) {
    OutFrame frame(FrameKind::Reply, id);
    frame.putArrays(values, exchange);
    return frame;
}

OutFrame failureFrame(std::uint64_t id, std::string_view type, std::string_view message) {
    OutFrame frame(FrameKind::Failure, id);
    frame.putText(type);
    frame.putText(message);
    return frame;
}

OutFrame printFrame(std::uint64_t id, const std::u16string& text, std::vector<vd::Array>& holder) {
    holder.assign(1, vd::ArrayFactory().createCharArray(text));
    OutFrame frame(FrameKind::Print, id);
    frame.putArrays(holder);
    return frame;
}

OutFrame printDoneFrame(std::uint64_t id) {
    return OutFrame(FrameKind::PrintDone, id);
}

OutFrame noticeFrame(const std::vector<std::uint64_t>& loans,
                     const std::vector<std::uint64_t>& chunks) {
    OutFrame frame(FrameKind::Notice, 0);
    for (const auto* list : {&loans, &chunks}) {
        frame.putU64(list->size());
        for (const std::uint64_t value : *list) {
            frame.putU64(value);
        }
    }
    return frame;
}

// --- decoding ----------------------------------------------------------------

void ByteStream::readPieces(std::span<iovec> pieces) {
    for (const iovec& piece : pieces) {
        read(piece.iov_base, piece.iov_len, false);
    }
}

namespace {

// Where the element data of one array goes.
struct Target {
    std::byte* data;
    std::uint64_t bytes;
    bool logical;
};

// Reads a description, checking every count against the bytes that are left
// before anything is allocated for it.
class MetaReader {
  public:
    MetaReader(std::span<const std::byte> meta, std::uint64_t dataBytes, BlockExchange* exchange)
        : meta_(meta), dataLeft_(dataBytes), exchange_(exchange) {}

    std::uint64_t left() const { return meta_.size() - pos_; }

    std::uint64_t u64() {
        std::uint64_t value;
        take(&value, sizeof value, "a count");
        return value;
    }

    std::string text() {
        const std::uint64_t size = u64();
        if (size > left()) {
            fail("a text of " + std::to_string(size) + " bytes runs past the description");
        }
        std::string value(reinterpret_cast<const char*>(meta_.data() + pos_), size);
        pos_ += size;
        return value;
    }

    std::vector<std::uint64_t> numbers() {
        const std::uint64_t count = u64();
        checkCount(count, 8, "numbers");
        std::vector<std::uint64_t> values(count);
        for (std::uint64_t& value : values) {
            value = u64();
        }
        return values;
    }

    std::vector<vd::Array> arrays() {
        const std::uint64_t count = u64();
        checkCount(count, kMinArrayBytes, "arrays");
        std::vector<vd::Array> values;
        values.reserve(count);
        for (std::uint64_t i = 0; i < count; ++i) {
            values.push_back(array(1));
        }
        return values;
    }

    void finish() const {
        if (left() != 0) {
            fail(std::to_string(left()) + " bytes left over at the end of the description");
        }
        if (dataLeft_ != 0) {
            fail("the data section is " + std::to_string(dataLeft_) +
                 " bytes longer than the arrays it holds");
        }
    }

    const std::vector<Target>& targets() const { return targets_; }

  private:
    void take(void* out, std::size_t size, const char* what) {
        if (size > left()) {
            fail(std::string("the description ends in the middle of ") + what);
        }
        std::memcpy(out, meta_.data() + pos_, size);
        pos_ += size;
    }

    // `count` items of at least `each` bytes must fit in what is left.
    void checkCount(std::uint64_t count, std::uint64_t each, const char* what) const {
        if (count > left() / each) {
            fail("a count of " + std::to_string(count) + " " + what +
                 " does not fit in the description");
        }
    }

    vd::Array array(std::uint32_t depth);
    vd::Array blockArray(int type, const std::vector<std::size_t>& dims, std::uint64_t numel,
                         Storage storage);

    std::span<const std::byte> meta_;
    std::size_t pos_ = 0;
    std::uint64_t dataLeft_;
    BlockExchange* exchange_;
    std::vector<Target> targets_;
    vd::ArrayFactory factory_;
};

vd::Array MetaReader::array(std::uint32_t depth) {
    if (depth > kMaxDepth) {
        fail("arrays nested deeper than " + std::to_string(kMaxDepth) + " levels");
    }
    ArrayHead head;
    take(&head, sizeof head, "an array's type");
    const int type = head.type;
    if (head.ndims < 2 || head.ndims > kMaxDims) {
        fail("an array with " + std::to_string(head.ndims) + " dimensions (2 to " +
             std::to_string(kMaxDims) + " allowed)");
    }
    const auto storage = static_cast<Storage>(head.storage);
    if (head.storage > static_cast<std::uint16_t>(Storage::Returned) ||
        (storage != Storage::Inline && blockElementSize(type) == 0)) {
        fail("an array of type " + typeName(type) + " with storage " +
             std::to_string(head.storage));
    }
    std::vector<std::size_t> dims(head.ndims);
    std::uint64_t numel = 1;
    for (std::size_t& d : dims) {
        d = u64();
        if (__builtin_mul_overflow(numel, d, &numel)) {
            fail("the product of an array's dimensions overflows");
        }
    }
    const auto kind = static_cast<vd::ArrayType>(type);
    if (blockElementSize(type) != 0) {
        return blockArray(type, dims, numel, storage);
    }
    switch (kind) {
        case vd::ArrayType::VELTRA_STRING: {
            checkCount(numel, 8, "strings");
            vd::TypedArray<vd::VELTRAString> strings = factory_.createArray<vd::VELTRAString>(dims);
            for (std::uint64_t i = 0; i < numel; ++i) {
                const std::uint64_t units = u64();
                if (units == kMissingString) {
                    continue;  // new string elements are missing
                }
                if (units > left() / sizeof(char16_t)) {
                    fail("a string of " + std::to_string(units) +
                         " units runs past the description");
                }
                std::u16string value(units, u'\0');
                take(value.data(), units * sizeof(char16_t), "a string");
                strings.setElement(i, vd::VELTRAString(std::move(value)));
            }
            return strings;
        }
        case vd::ArrayType::CELL: {
            checkCount(numel, kMinArrayBytes, "cell elements");
            std::vector<vd::Array> elements;
            elements.reserve(numel);
            for (std::uint64_t i = 0; i < numel; ++i) {
                elements.push_back(array(depth + 1));
            }
            return factory_.createCellArray(dims, elements);
        }
        case vd::ArrayType::STRUCT: {
            const std::uint64_t fieldCount = u64();
            checkCount(fieldCount, 8, "field names");
            std::vector<std::string> names;
            names.reserve(fieldCount);
            for (std::uint64_t f = 0; f < fieldCount; ++f) {
                names.push_back(text());
            }
            if (fieldCount == 0 && numel > kMaxBareStructElements) {
                fail("a struct array without fields of " + std::to_string(numel) +
                     " elements (at most " + std::to_string(kMaxBareStructElements) + ")");
            }
            if (fieldCount != 0 && numel > left() / kMinArrayBytes / fieldCount) {
                fail("a struct array of " + std::to_string(numel) + " elements and " +
                     std::to_string(fieldCount) + " fields does not fit in the description");
            }
            vd::StructArray structs = factory_.createStructArray(dims, names);
            for (std::uint64_t i = 0; i < numel; ++i) {
                for (const std::string& name : names) {
                    structs[i][name] = array(depth + 1);
                }
            }
            return structs;
        }
        case vd::ArrayType::VALUE_OBJECT:
        case vd::ArrayType::HANDLE_OBJECT_REF: {
            checkCount(numel, 8, "object tokens");
            // Written through one view: a write through a temporary view
            // would detach it and leave `objects` untouched.
            vd::Array objects = factory_.createArray(kind, dims);
            if (kind == vd::ArrayType::VALUE_OBJECT) {
                vd::ValueObjectArray values(std::move(objects));
                for (std::uint64_t i = 0; i < numel; ++i) {
                    values.setElement(i, vd::ValueObject(u64()));
                }
                objects = std::move(values);
            } else {
                vd::TypedArray<vd::HandleObjectRef> handles(std::move(objects));
                for (std::uint64_t i = 0; i < numel; ++i) {
                    handles.setElement(i, vd::HandleObjectRef(u64()));
                }
                objects = std::move(handles);
            }
            return objects;
        }
        case vd::ArrayType::ENUM: {
            checkCount(numel, 8, "enumeration names");
            vd::EnumArray names = factory_.createArray(kind, dims);
            for (std::uint64_t i = 0; i < numel; ++i) {
                names.setElement(i, vd::Enumeration(text()));
            }
            return names;
        }
        default:
            // UNKNOWN, sparse and values without a type: a shape alone.
            return factory_.createOpaqueArray(type, dims);
    }
}

vd::Array MetaReader::blockArray(int type, const std::vector<std::size_t>& dims,
                                 std::uint64_t numel, Storage storage) {
    const std::size_t elementSize = blockElementSize(type);
    const auto kind = static_cast<vd::ArrayType>(type);
    if (storage != Storage::Inline) {
        if (numel > kMaxFrameBytes / elementSize) {
            fail("a shared array of " + std::to_string(numel) + " elements of type " +
                 typeName(type));
        }
        SharedBlock block;
        block.storage = storage;
        block.loan = u64();
        if (storage == Storage::Lent) {
            block.chunk = u64();
            block.offset = u64();
        }
        if (exchange_ == nullptr) {
            fail("an array in shared memory on a connection without it");
        }
        return exchange_->resolve(block, kind, dims, numel * elementSize);
    }
    if (numel > dataLeft_ / elementSize) {
        fail("an array of " + std::to_string(numel) + " elements of type " + typeName(type) +
             " runs past the data section");
    }
    const std::uint64_t bytes = numel * elementSize;
    if (bytes == 0) {
        return factory_.createArray(kind, dims);
    }
    dataLeft_ -= bytes;
    // Every block is written whole before anyone reads it. Logical bytes are
    // normalised once they have arrived; they start as zeros from calloc
    // (the factory reads them as it takes them), whose pages the system
    // clears only when they are written, so that a frame that only claims a
    // large block commits no memory for it. Logical arrays are never lent,
    // so they need no shareable memory.
    const bool logical = kind == vd::ArrayType::LOGICAL;
    std::unique_ptr<void, void (*)(void*)> buffer =
        logical ? std::unique_ptr<void, void (*)(void*)>(std::calloc(bytes, 1), std::free)
                : factory_.createUninitialisedBuffer(kind, numel);
    if (buffer == nullptr) {
        fail("no memory for an array of " + std::to_string(bytes) + " bytes");
    }
    targets_.push_back({static_cast<std::byte*>(buffer.get()), bytes, logical});
    return factory_.createArrayFromBuffer(dims, kind, std::move(buffer));
}

void checkHeader(const FrameHeader& header) {
    if (header.magic != kMagic) {
        fail(header.magic == __builtin_bswap32(kMagic)
                 ? "the peer writes its frames in the other byte order"
                 : "not a frame of this wire (bad magic word)");
    }
    if (header.version != kWireVersion) {
        fail("the peer speaks wire version " + std::to_string(header.version) +
             ", this side speaks version " + std::to_string(kWireVersion));
    }
    if (header.kind < static_cast<std::uint32_t>(FrameKind::Hello) ||
        header.kind > static_cast<std::uint32_t>(FrameKind::Notice)) {
        fail("unknown frame kind " + std::to_string(header.kind));
    }
    if (header.metaBytes > kMaxFrameBytes || header.dataBytes > kMaxFrameBytes - header.metaBytes) {
        fail("a frame of " + std::to_string(header.metaBytes) + " + " +
             std::to_string(header.dataBytes) + " bytes, beyond the limit of " +
             std::to_string(kMaxFrameBytes));
    }
}

// The frame's fields from its description; element blocks still to be filled.
Frame parseFrame(const FrameHeader& header, std::span<const std::byte> meta,
                 BlockExchange* exchange, std::vector<Target>& targets) {
    Frame frame;
    frame.kind = static_cast<FrameKind>(header.kind);
    frame.flags = header.flags;
    frame.id = header.id;
    MetaReader reader(meta, header.dataBytes, exchange);
    try {
        switch (frame.kind) {
            case FrameKind::Request:
                frame.name = reader.text();
                frame.nlhs = reader.u64();
                if (frame.nlhs > kMaxOutputs) {
                    fail("a request for " + std::to_string(frame.nlhs) + " outputs (at most " +
                         std::to_string(kMaxOutputs) + ")");
                }
                frame.arrays = reader.arrays();
                break;
            case FrameKind::Reply:
            case FrameKind::Print:
                frame.arrays = reader.arrays();
                break;
            case FrameKind::Failure:
                frame.type = reader.text();
                frame.message = reader.text();
                break;
            case FrameKind::Notice:
                frame.loans = reader.numbers();
                frame.chunks = reader.numbers();
                break;
            case FrameKind::Hello:
            case FrameKind::PrintDone:
                break;
        }
    } catch (const vd::Exception& error) {
        fail(std::string("a malformed array: ") + error.what());
    }
    reader.finish();
    if (frame.kind == FrameKind::Print &&
        (frame.arrays.size() != 1 || frame.arrays[0].getType() != vd::ArrayType::CHAR)) {
        fail("a print frame must hold exactly one char array");
    }
    targets = reader.targets();
    return frame;
}

// Logical elements are bytes of 0 or 1, whatever arrived.
void normaliseLogicals(const std::vector<Target>& targets) {
    for (const Target& target : targets) {
        if (target.logical) {
            std::transform(target.data, target.data + target.bytes, target.data,
                           [](std::byte b) { return std::byte{b != std::byte{0}}; });
        }
    }
}

std::string systemError(const char* what) {
    return std::string(what) + ": " + std::strerror(errno);
}

// Moves past `bytes` transferred from pieces[first...]; the new first piece.
std::size_t consumed(std::span<iovec> pieces, std::size_t first, std::size_t bytes) {
    while (bytes > 0) {
        iovec& piece = pieces[first];
        const std::size_t step = std::min(bytes, piece.iov_len);
        piece.iov_base = static_cast<std::byte*>(piece.iov_base) + step;
        piece.iov_len -= step;
        bytes -= step;
        if (piece.iov_len == 0) {
            ++first;
        }
    }
    return first;
}

// Bytes already in memory, as a stream (decodeFrame).
class MemoryStream : public ByteStream {
  public:
    explicit MemoryStream(std::span<const std::byte> bytes) : bytes_(bytes) {}
    void read(void* out, std::size_t size, bool) override {
        if (size > bytes_.size() - pos_) {
            fail("the frame is shorter than its lengths say");
        }
        std::memcpy(out, bytes_.data() + pos_, size);
        pos_ += size;
    }
    void write(std::span<const iovec>) override { fail("a memory stream is read only"); }
    std::size_t left() const { return bytes_.size() - pos_; }

  private:
    std::span<const std::byte> bytes_;
    std::size_t pos_ = 0;
};

}  // namespace

void sendFrame(ByteStream& stream, const OutFrame& frame) {
    if (frame.dataBytes() == 0) {  // the description alone, as most frames are
        const iovec whole = frame.description();
        stream.write(std::span(&whole, 1));
        return;
    }
    std::vector<iovec> pieces = frame.pieces();
    stream.write(pieces);
}

Frame receiveFrame(ByteStream& stream, BlockExchange* exchange) {
    FrameHeader header;
    stream.read(&header, sizeof header, true);
    checkHeader(header);
    // The description is read in growing chunks, so that a frame that only
    // claims to be large commits no more memory than what arrives.
    std::vector<std::byte> meta;
    std::size_t have = 0;
    while (have < header.metaBytes) {
        const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(
            header.metaBytes, std::max<std::uint64_t>(2 * have, std::uint64_t{1} << 16)));
        meta.resize(want);
        stream.read(meta.data() + have, want - have, false);
        have = want;
    }
    std::vector<Target> targets;
    Frame frame = parseFrame(header, meta, exchange, targets);
    std::vector<iovec> pieces;
    pieces.reserve(targets.size());
    for (const Target& target : targets) {
        pieces.push_back({target.data, target.bytes});
    }
    stream.readPieces(pieces);
    normaliseLogicals(targets);
    return frame;
}

Frame decodeFrame(std::span<const std::byte> bytes, BlockExchange* exchange) {
    FrameHeader header;
    if (bytes.size() < sizeof header) {
        fail("a frame shorter than its header");
    }
    std::memcpy(&header, bytes.data(), sizeof header);
    checkHeader(header);
    const std::uint64_t rest = bytes.size() - sizeof header;
    if (header.metaBytes > rest || header.dataBytes != rest - header.metaBytes) {
        fail("the frame's lengths do not match its " + std::to_string(bytes.size()) + " bytes");
    }
    MemoryStream stream(bytes);
    Frame frame = receiveFrame(stream, exchange);
    if (stream.left() != 0) {
        fail("the frame's lengths do not match its " + std::to_string(bytes.size()) + " bytes");
    }
    return frame;
}

// --- sockets -----------------------------------------------------------------

void SocketStream::read(void* out, std::size_t size, bool atStart) {
    auto* position = static_cast<std::byte*>(out);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = ::recv(fd_, position + done, size - done, 0);
        if (n > 0) {
            done += static_cast<std::size_t>(n);
        } else if (n == 0) {
            if (atStart && done == 0) {
                throw ConnectionClosed("the peer closed the connection");
            }
            fail("the connection closed in the middle of a frame");
        } else if (errno != EINTR) {
            if (atStart && done == 0 && errno == ECONNRESET) {
                throw ConnectionClosed("the peer closed the connection");
            }
            fail(systemError("cannot read from the connection"));
        }
    }
}

void SocketStream::readPieces(std::span<iovec> pieces) {
    std::size_t first = 0;
    while (first < pieces.size()) {
        const int count = static_cast<int>(std::min<std::size_t>(pieces.size() - first, IOV_MAX));
        const ssize_t n = ::readv(fd_, &pieces[first], count);
        if (n == 0) {
            fail("the connection closed in the middle of a frame");
        }
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail(systemError("cannot read from the connection"));
        }
        first = consumed(pieces, first, static_cast<std::size_t>(n));
    }
}

void SocketStream::write(std::span<const iovec> written) {
    std::vector<iovec> pieces(written.begin(), written.end());
    std::size_t first = 0;
    while (first < pieces.size()) {
        if (pieces[first].iov_len == 0) {
            ++first;
            continue;
        }
        msghdr message{};
        message.msg_iov = &pieces[first];
        message.msg_iovlen = std::min<std::size_t>(pieces.size() - first, IOV_MAX);
        const ssize_t n = ::sendmsg(fd_, &message, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail(systemError("cannot write to the connection"));
        }
        first = consumed(pieces, first, static_cast<std::size_t>(n));
    }
}

}  // namespace vxpy::wire
