// Encoding, decoding and look-up of messages by type name.
#include "message/codec.h"

#include <arpa/inet.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/util/json_util.h>

#include <cstdint>
#include <cstring>
#include <exception>

#include "platform/log.h"

namespace analysis::rokt::message {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::Message;
using google::protobuf::MessageFactory;

namespace {

constexpr std::size_t NAME_LEN_SIZE = sizeof(uint32_t);

void LogLibraryLine(google::protobuf::LogLevel /* level */, const char* file, int line,
                    const std::string& text) {
    TIV_LOGE("protobuf library reports: %s, file=%s, line=%d", text.c_str(), file, line);
}

// The library writes to standard error unless it is told otherwise, and standard error belongs to
// the log.
void TakeLibraryLog() {
    static const bool taken = [] {
        google::protobuf::SetLogHandler(&LogLibraryLine);
        return true;
    }();
    static_cast<void>(taken);
}

const Descriptor* FindType(const std::string& name) {
    const DescriptorPool* pool = DescriptorPool::generated_pool();
    const Descriptor* descriptor = pool->FindMessageTypeByName(name);
    return descriptor != nullptr ? descriptor : pool->FindMessageTypeByName(name);
}

const Message* FindPrototype(const std::string& name) {
    const Descriptor* descriptor = FindType(name);
    if (descriptor == nullptr) {
        TIV_LOGW("Failed to FindMessageTypeByName, name=%s", name.c_str());
        return nullptr;
    }
    MessageFactory* factory = MessageFactory::generated_factory();
    if (factory == nullptr) {
        TIV_LOGE("Failed to generated_factory by descriptor of name=%s", name.c_str());
        return nullptr;
    }
    const Message* prototype = factory->GetPrototype(descriptor);
    if (prototype == nullptr) {
        TIV_LOGE("Failed to GetPrototype by descriptor of name=%s", name.c_str());
    }
    return prototype;
}

// False, with an error, when the bytes cannot be a frame. Sets the stored length of the name.
bool CheckFrame(const char* data, std::size_t length, std::size_t& storedNameLen) {
    if (length > Codec::MAX_BUFFER_LEN) {
        TIV_LOGE("[DecodeMessage] buf size(%zu) is too big.", length);
        return false;
    }
    if (length < NAME_LEN_SIZE) {
        TIV_LOGE("bufLen less than name len, bufLen=%d, expected_len=%d", static_cast<int>(length),
                 static_cast<int>(NAME_LEN_SIZE));
        return false;
    }
    uint32_t stored = 0;
    std::memcpy(&stored, data, NAME_LEN_SIZE);
    stored = ntohl(stored);
    if (stored > Codec::MAX_STORED_NAME_LEN) {
        TIV_LOGE("[DecodeMessage] buf size(%u) is too big.", stored);
        return false;
    }
    if (length < NAME_LEN_SIZE + stored) {
        TIV_LOGE("bufLen less than name, bufLen=%d, expected_len=%d", static_cast<int>(length),
                 static_cast<int>(NAME_LEN_SIZE + stored));
        return false;
    }
    storedNameLen = stored;
    return true;
}

Codec::MessagePtr DecodeFrame(const char* data, std::size_t length) {
    std::size_t storedNameLen = 0;
    if (!CheckFrame(data, length, storedNameLen)) {
        return nullptr;
    }
    const std::string name(data + NAME_LEN_SIZE, storedNameLen);
    Codec::MessagePtr message = Codec::CreateMessage(name);
    if (message == nullptr) {
        message = Codec::CreateMessage(name);
    }
    if (message == nullptr) {
        TIV_LOGW("Failed to CreateMessage from name:%s", name.c_str());
        return nullptr;
    }
    const std::size_t bodyStart = NAME_LEN_SIZE + storedNameLen;
    const int bodyLen = static_cast<int>(length - bodyStart);
    if (!message->ParseFromArray(data + bodyStart, bodyLen)) {
        TIV_LOGE("Failed to ParseFromArray, dataLen=%d", bodyLen);
        return nullptr;
    }
    return message;
}

// The whole frame is reserved at once: a chunk of several MiB is copied once.
bool AppendMessage(const Message& message, const std::string& name, std::string& frame) {
    const uint32_t storedNameLen = static_cast<uint32_t>(name.size() + 1);
    const uint32_t wireNameLen = htonl(storedNameLen);
    frame.reserve(NAME_LEN_SIZE + storedNameLen + message.ByteSizeLong());
    frame.append(reinterpret_cast<const char*>(&wireNameLen), NAME_LEN_SIZE);
    frame.append(name.c_str(), storedNameLen);
    return message.AppendToString(&frame);
}

}  // namespace

Codec::MessagePtr Codec::CreateMessage(const std::string& name) {
    try {
        const Message* prototype = FindPrototype(name.c_str());
        return prototype == nullptr ? nullptr : MessagePtr(prototype->New());
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return nullptr;
    }
}

void Codec::AppendFrame(const MessagePtr& message, std::string& frame) {
    TakeLibraryLog();
    if (message == nullptr) {
        TIV_LOGE("Message is null");
        return;
    }
    bool appended = false;
    try {
        const std::string name = message->GetTypeName();
        if (name.size() > MAX_TYPE_NAME_LEN) {
            TIV_LOGE("Type size:%zu is invalid", name.size());
            return;
        }
        appended = AppendMessage(*message, name, frame);
    } catch (const std::exception&) {
        // No memory: refused like any other message that cannot be appended.
    }
    if (!appended) {
        TIV_LOGE("Failed to append message");
        frame.clear();
    }
}

std::string Codec::EncodeMessage(const MessagePtr& message) {
    std::string frame;
    AppendFrame(message, frame);
    return frame;
}

std::shared_ptr<std::string> Codec::EncodeMessageShared(const MessagePtr& message) {
    try {
        auto frame = std::make_shared<std::string>();
        AppendFrame(message, *frame);
        return frame->empty() ? nullptr : frame;
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return nullptr;
    }
}

Codec::MessagePtr Codec::DecodeMessage(const std::string& buffer) {
    return DecodeMessage(buffer.data(), buffer.size());
}

Codec::MessagePtr Codec::DecodeMessage(const char* data, std::size_t length) {
    TakeLibraryLog();
    try {
        return DecodeFrame(data, data == nullptr ? 0 : length);
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return nullptr;
    }
}

std::string Codec::MessageToJson(const MessagePtr& message, bool addWhitespace,
                                 bool alwaysPrintPrimitiveFields) {
    if (message == nullptr) {
        return "";
    }
    google::protobuf::util::JsonPrintOptions options;
    options.add_whitespace = addWhitespace;
    options.always_print_primitive_fields = alwaysPrintPrimitiveFields;
    try {
        std::string text;
        const auto status = google::protobuf::util::MessageToJsonString(*message, &text, options);
        return status.ok() ? text : "";
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return "";
    }
}

}  // namespace analysis::rokt::message
