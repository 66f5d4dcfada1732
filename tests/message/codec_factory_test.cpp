// Tests of what happens when the library cannot make a message of a type that it knows.
#include <google/protobuf/message.h>

#include <string>
#include <vector>

#include "message/codec.h"
#include "support/recorded_log_test.h"

namespace {

using google::protobuf::Descriptor;
using google::protobuf::Message;
using google::protobuf::MessageFactory;

// The factory that the codec gets; the library's own unless a test sets one.
bool g_isReplaced = false;
MessageFactory* g_factory = nullptr;

class EmptyFactory : public MessageFactory {
 public:
    const Message* GetPrototype(const Descriptor*) override { return nullptr; }
};

}  // namespace

// The linker leads the codec's calls of MessageFactory::generated_factory here.
extern "C" {
MessageFactory* __real__ZN6google8protobuf14MessageFactory17generated_factoryEv();
MessageFactory* __wrap__ZN6google8protobuf14MessageFactory17generated_factoryEv();

MessageFactory* __wrap__ZN6google8protobuf14MessageFactory17generated_factoryEv() {
    return g_isReplaced ? g_factory
                        : __real__ZN6google8protobuf14MessageFactory17generated_factoryEv();
}
}

namespace analysis::rokt::message {

class CodecFactory : public tiv::test::RecordedLogTest {
 protected:
    CodecFactory() { g_isReplaced = true; }
    ~CodecFactory() override {
        g_isReplaced = false;
        g_factory = nullptr;
    }
};

TEST_F(CodecFactory, LibraryWithoutOneGivesNull) {
    EXPECT_EQ(Codec::CreateMessage("analysis.rokt.proto.Response"), nullptr);

    EXPECT_EQ(log.Texts('E'), std::vector<std::string>{"Failed to generated_factory by descriptor "
                                                       "of name=analysis.rokt.proto.Response"});
}

TEST_F(CodecFactory, TypeWithoutAPrototypeGivesNull) {
    EmptyFactory empty;
    g_factory = &empty;

    EXPECT_EQ(Codec::CreateMessage("analysis.rokt.proto.Response"), nullptr);

    EXPECT_EQ(log.Texts('E'), std::vector<std::string>{"Failed to GetPrototype by descriptor of "
                                                       "name=analysis.rokt.proto.Response"});
}

}  // namespace analysis::rokt::message
