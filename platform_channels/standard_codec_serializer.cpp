#include "standard_codec_serializer.h"

#include <iostream>
#include <string>
#include <type_traits>
#include <vector>

#include "empty_list_padding.h"
#include "standard_codec_type.h"

namespace flutter {

namespace {

using Type = StandardCodecType;

// Lists are read without reserving their claimed count, and grow by moving their elements.
static_assert(std::is_nothrow_move_constructible_v<EncodableValue>,
              "EncodableValue must be nothrow-movable");

void PrintInvalidRead() { std::cerr << "Invalid read in StandardCodecByteStreamReader" << std::endl; }

// Element count and payload of a typed list: count, padding to the element size, elements.
template <typename T>
EncodableValue ReadTypedList(const StandardCodecSerializer& serializer,
                             ByteBufferStreamReader* stream) {
  const size_t count = serializer.ReadSize(stream);
  if (stream->failed()) {
    return EncodableValue();
  }
  if (count == 0) {
    // Writers differ after a count of zero: the interface's (and ours) pad, the engine's C++ writer
    // does not. Padding is zeros and never runs past the end, so bytes that are not zeros, or that
    // are missing, belong to whatever follows; zeros that could be either are settled by the
    // message's plan (PlanReading).
    stream->SkipOptionalAlignment(sizeof(T));
    return EncodableValue(std::vector<T>());
  }
  stream->ReadAlignment(sizeof(T));
  if (stream->failed()) {
    return EncodableValue();
  }
  if (count > stream->remaining() / sizeof(T)) {
    PrintInvalidRead();
    stream->Fail();
    return EncodableValue();
  }
  std::vector<T> list(count);
  stream->ReadBytes(reinterpret_cast<uint8_t*>(list.data()), count * sizeof(T));
  return EncodableValue(std::move(list));
}

template <typename T>
void WriteTypedList(const StandardCodecSerializer& serializer, const std::vector<T>& list,
                    ByteBufferStreamWriter* stream) {
  serializer.WriteSize(list.size(), stream);
  // Padded even when empty: the interface's reader always aligns after the count, so a list
  // without its padding would make it misread whatever follows.
  stream->WriteAlignment(sizeof(T));
  if (list.empty()) {
    return;
  }
  stream->WriteBytes(reinterpret_cast<const uint8_t*>(list.data()), list.size() * sizeof(T));
}

void PrintTooDeep(const char* operation) {
  std::cerr << "Nesting deeper than " << StandardCodecSerializer::kMaxNestingDepth
            << " in StandardCodecSerializer::" << operation << std::endl;
}

}  // namespace

const StandardCodecSerializer& StandardCodecSerializer::GetInstance() {
  static const StandardCodecSerializer instance;
  return instance;
}

void StandardCodecSerializer::PlanReading(ByteBufferStreamReader* stream,
                                          size_t value_count) const {
  if (stream->failed()) {
    return;
  }
  stream->SetUnpaddedEmptyLists(EmptyListPadding::UnpaddedPositions(
      stream->data(), stream->size(), stream->position(), value_count));
}

EncodableValue StandardCodecSerializer::ReadValue(ByteBufferStreamReader* stream) const {
  return ReadValueAtDepth(stream, 0);
}

EncodableValue StandardCodecSerializer::ReadValueAtDepth(ByteBufferStreamReader* stream,
                                                         int depth) const {
  const uint8_t type = stream->ReadByte();
  if (stream->failed()) {
    return EncodableValue();
  }
  EncodableValue value = ReadValueOfType(type, stream, depth);
  // A scalar cut short reads as zero; the caller must see null, as for every other fault.
  if (stream->failed()) {
    return EncodableValue();
  }
  return value;
}

EncodableValue StandardCodecSerializer::ReadValueOfType(uint8_t type,
                                                        ByteBufferStreamReader* stream,
                                                        int depth) const {
  switch (static_cast<Type>(type)) {
    case Type::kNull:
      return EncodableValue();
    case Type::kTrue:
      return EncodableValue(true);
    case Type::kFalse:
      return EncodableValue(false);
    case Type::kInt32:
      return EncodableValue(stream->ReadInt32());
    case Type::kInt64:
      return EncodableValue(stream->ReadInt64());
    case Type::kFloat64:
      stream->ReadAlignment(8);
      return EncodableValue(stream->ReadDouble());
    case Type::kLargeInt:
    case Type::kString: {
      const size_t size = ReadSize(stream);
      if (stream->failed()) {
        return EncodableValue();
      }
      if (size > stream->remaining()) {
        PrintInvalidRead();
        stream->Fail();
        return EncodableValue();
      }
      std::string string(size, '\0');
      stream->ReadBytes(reinterpret_cast<uint8_t*>(string.data()), size);
      return EncodableValue(std::move(string));
    }
    case Type::kUInt8List:
      return ReadTypedList<uint8_t>(*this, stream);
    case Type::kInt32List:
      return ReadTypedList<int32_t>(*this, stream);
    case Type::kInt64List:
      return ReadTypedList<int64_t>(*this, stream);
    case Type::kFloat64List:
      return ReadTypedList<double>(*this, stream);
    case Type::kFloat32List:
      return ReadTypedList<float>(*this, stream);
    case Type::kList:
    case Type::kMap: {
      const bool is_map = static_cast<Type>(type) == Type::kMap;
      const size_t count = ReadSize(stream);
      if (stream->failed()) {
        return EncodableValue();
      }
      // Every element takes at least one byte (its type byte); a larger count is a lie.
      if (count > stream->remaining() / (is_map ? 2 : 1)) {
        PrintInvalidRead();
        stream->Fail();
        return EncodableValue();
      }
      if (depth >= kMaxNestingDepth) {
        PrintTooDeep("ReadValue");
        stream->Fail();
        return EncodableValue();
      }
      if (is_map) {
        EncodableMap map;
        for (size_t i = 0; i < count && !stream->failed(); ++i) {
          EncodableValue key = ReadValueAtDepth(stream, depth + 1);
          EncodableValue value = ReadValueAtDepth(stream, depth + 1);
          map.insert_or_assign(std::move(key), std::move(value));
        }
        return stream->failed() ? EncodableValue() : EncodableValue(std::move(map));
      }
      // No reserve(count): the count is bounded only by the bytes left, and reserving it at every
      // level of a deep nest would let a small message claim gigabytes before failing. Growth
      // moves the elements (EncodableValue is nothrow-movable), so this costs little.
      EncodableList list;
      for (size_t i = 0; i < count && !stream->failed(); ++i) {
        list.push_back(ReadValueAtDepth(stream, depth + 1));
      }
      return stream->failed() ? EncodableValue() : EncodableValue(std::move(list));
    }
  }
  std::cerr << "Unknown type in StandardCodecSerializer::ReadValueOfType: "
            << static_cast<int>(type) << std::endl;
  stream->Fail();
  return EncodableValue();
}

size_t StandardCodecSerializer::ReadSize(ByteBufferStreamReader* stream) const {
  const uint8_t byte = stream->ReadByte();
  if (byte < 254) {
    return byte;
  }
  if (byte == 254) {
    uint16_t value = 0;
    stream->ReadBytes(reinterpret_cast<uint8_t*>(&value), sizeof(value));
    return value;
  }
  uint32_t value = 0;
  stream->ReadBytes(reinterpret_cast<uint8_t*>(&value), sizeof(value));
  return value;
}

void StandardCodecSerializer::WriteSize(size_t size, ByteBufferStreamWriter* stream) const {
  if (size < 254) {
    stream->WriteByte(static_cast<uint8_t>(size));
  } else if (size <= 0xffff) {
    stream->WriteByte(254);
    const uint16_t value = static_cast<uint16_t>(size);
    stream->WriteBytes(reinterpret_cast<const uint8_t*>(&value), sizeof(value));
  } else {
    stream->WriteByte(255);
    const uint32_t value = static_cast<uint32_t>(size);
    stream->WriteBytes(reinterpret_cast<const uint8_t*>(&value), sizeof(value));
  }
}

void StandardCodecSerializer::WriteValue(const EncodableValue& value,
                                         ByteBufferStreamWriter* stream) const {
  WriteValueAtDepth(value, stream, 0);
}

void StandardCodecSerializer::WriteValueAtDepth(const EncodableValue& value,
                                                ByteBufferStreamWriter* stream, int depth) const {
  if (stream->failed()) {
    return;
  }
  const bool container =
      std::holds_alternative<EncodableList>(value) || std::holds_alternative<EncodableMap>(value);
  if (container && depth >= kMaxNestingDepth) {
    PrintTooDeep("WriteValue");
    stream->Fail();
    return;
  }
  std::visit(
      [this, stream, depth](const auto& v) {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::monostate>) {
          stream->WriteByte(static_cast<uint8_t>(Type::kNull));
        } else if constexpr (std::is_same_v<T, bool>) {
          stream->WriteByte(static_cast<uint8_t>(v ? Type::kTrue : Type::kFalse));
        } else if constexpr (std::is_same_v<T, int32_t>) {
          stream->WriteByte(static_cast<uint8_t>(Type::kInt32));
          stream->WriteInt32(v);
        } else if constexpr (std::is_same_v<T, int64_t>) {
          stream->WriteByte(static_cast<uint8_t>(Type::kInt64));
          stream->WriteInt64(v);
        } else if constexpr (std::is_same_v<T, double>) {
          stream->WriteByte(static_cast<uint8_t>(Type::kFloat64));
          stream->WriteAlignment(8);
          stream->WriteDouble(v);
        } else if constexpr (std::is_same_v<T, std::string>) {
          stream->WriteByte(static_cast<uint8_t>(Type::kString));
          WriteSize(v.size(), stream);
          stream->WriteBytes(reinterpret_cast<const uint8_t*>(v.data()), v.size());
        } else if constexpr (std::is_same_v<T, std::vector<uint8_t>>) {
          stream->WriteByte(static_cast<uint8_t>(Type::kUInt8List));
          WriteSize(v.size(), stream);
          stream->WriteBytes(v.data(), v.size());
        } else if constexpr (std::is_same_v<T, std::vector<int32_t>>) {
          stream->WriteByte(static_cast<uint8_t>(Type::kInt32List));
          WriteTypedList(*this, v, stream);
        } else if constexpr (std::is_same_v<T, std::vector<int64_t>>) {
          stream->WriteByte(static_cast<uint8_t>(Type::kInt64List));
          WriteTypedList(*this, v, stream);
        } else if constexpr (std::is_same_v<T, std::vector<double>>) {
          stream->WriteByte(static_cast<uint8_t>(Type::kFloat64List));
          WriteTypedList(*this, v, stream);
        } else if constexpr (std::is_same_v<T, std::vector<float>>) {
          stream->WriteByte(static_cast<uint8_t>(Type::kFloat32List));
          WriteTypedList(*this, v, stream);
        } else if constexpr (std::is_same_v<T, EncodableList>) {
          stream->WriteByte(static_cast<uint8_t>(Type::kList));
          WriteSize(v.size(), stream);
          for (const EncodableValue& item : v) {
            WriteValueAtDepth(item, stream, depth + 1);
          }
        } else if constexpr (std::is_same_v<T, EncodableMap>) {
          stream->WriteByte(static_cast<uint8_t>(Type::kMap));
          WriteSize(v.size(), stream);
          for (const auto& [key, item] : v) {
            WriteValueAtDepth(key, stream, depth + 1);
            WriteValueAtDepth(item, stream, depth + 1);
          }
        } else {
          static_assert(std::is_same_v<T, CustomEncodableValue>, "every kind is handled");
          std::cerr << "Unhandled custom type in StandardCodecSerializer::WriteValue. "
                    << "Custom types require codec extensions." << std::endl;
          stream->WriteByte(static_cast<uint8_t>(Type::kNull));
        }
      },
      static_cast<const EncodableValue::super&>(value));
}

}  // namespace flutter
