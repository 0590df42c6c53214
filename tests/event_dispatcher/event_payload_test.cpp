#include "base/event_dispatcher/event_payload.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include "event_dispatcher/event_fixtures.h"
#include "event_dispatcher/payload_module.h"

struct ChannelInfo {
    int number;
    std::string name;
};

struct SameSizeAsChannelInfo {
    int number;
    std::string name;
};

struct ChannelName {
    int number;
    std::string name;
};

namespace other {
struct ChannelInfo {
    int number;
    std::string name;
};
}  // namespace other

/// Local types in functions of every kind.
struct WithLocalTypes {
    static auto ofStatic() {
        struct Local {};
        return Local{};
    }
    auto ofConst() const {
        struct Local {};
        return Local{};
    }
    auto ofVolatile() const volatile {
        struct Local {};
        return Local{};
    }
    auto ofLvalue() & {
        struct Local {};
        return Local{};
    }
    auto ofRvalue() const&& {
        struct Local {};
        return Local{};
    }
};

namespace {

using namespace tevalon::base;
using namespace tevalon::base::event_dispatcher;
using Event = std::shared_ptr<BrowserEvent>;

constexpr std::int32_t kModule = 61;
constexpr std::int32_t kPeer = 62;
constexpr std::int32_t kType = 5;

enum class Colour : std::uint8_t { Red = 3 };

class Counted {
public:
    explicit Counted(int* p_alive) : m_alive(p_alive) { ++*m_alive; }
    ~Counted() { --*m_alive; }

    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

private:
    int* m_alive;
};

struct Throws {
    Throws() { throw std::runtime_error("no payload"); }
};

struct OfThisFile {
    int number;
    std::string name;
};

/// A payload as clients derive them, that must not be asked anything.
class Foreign : public EventParam {
public:
    std::int32_t intValue() override {
        ADD_FAILURE() << "asked";
        return 0;
    }
    std::array<void*, 4> words{};
};

class EventPayloadTest : public testing::Test {
protected:
    const EventHub m_hub{kModule};
};

TEST_F(EventPayloadTest, IsWhatTheEventWasMadeWith) {
    const Event event = makeEvent<ChannelInfo>(m_hub, kType, 7, "Seven");

    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->srcModule, kModule);
    EXPECT_EQ(event->eventType, kType);
    const ChannelInfo* const p_channel = payload<ChannelInfo>(event);
    ASSERT_NE(p_channel, nullptr);
    EXPECT_EQ(p_channel->number, 7);
    EXPECT_EQ(p_channel->name, "Seven");
}

TEST_F(EventPayloadTest, IsNoneOfAnotherType) {
    const Event event = makeEvent<ChannelInfo>(m_hub, kType, 7, "Seven");

    EXPECT_EQ(payload<SameSizeAsChannelInfo>(event), nullptr);
    EXPECT_EQ(payload<ChannelName>(event), nullptr);  // Of equal length too.
    EXPECT_EQ(payload<other::ChannelInfo>(event), nullptr);
    EXPECT_EQ(payload<OfThisFile>(event), nullptr);
    EXPECT_EQ(payload<std::string>(event), nullptr);
    EXPECT_EQ(payload<unsigned>(makeEvent<int>(m_hub, kType, 1)), nullptr);
    EXPECT_EQ(payload<SharedList<unsigned>>(makeEvent<SharedList<int>>(m_hub, kType)), nullptr);
}

TEST_F(EventPayloadTest, IsNoneOfEventsThatWereMadeOtherwise) {
    const Event foreign = m_hub.createEvent(kType);
    foreign->param = new Foreign();

    EXPECT_EQ(payload<ChannelInfo>(nullptr), nullptr);
    EXPECT_EQ(payload<ChannelInfo>(m_hub.createEvent(kType)), nullptr);
    EXPECT_EQ(payload<ChannelInfo>(foreign), nullptr);
    EXPECT_EQ(replyOf<ChannelInfo>(foreign), nullptr);
}

TEST_F(EventPayloadTest, IsThatOfTheParamThatTheEventHasNow) {
    const Event event = makeEvent<ChannelInfo>(m_hub, kType, 7, "Seven");

    delete event->param;
    event->param = new Foreign();

    EXPECT_EQ(payload<ChannelInfo>(event), nullptr);
}

TEST_F(EventPayloadTest, IsDestroyedOnceWithTheEvent) {
    int alive = 0;
    Event event = makeEvent<Counted>(m_hub, kType, &alive);
    ASSERT_EQ(alive, 1);

    event.reset();

    EXPECT_EQ(alive, 0);
}

TEST_F(EventPayloadTest, MayBeMovableOnly) {
    const Event event = makeEvent<std::unique_ptr<int>>(m_hub, kType, std::make_unique<int>(9));

    ASSERT_NE(payload<std::unique_ptr<int>>(event), nullptr);
    EXPECT_EQ(**payload<std::unique_ptr<int>>(event), 9);
}

TEST_F(EventPayloadTest, OfIntegersAndEnumerationsIsTheParamsNumber) {
    EXPECT_EQ(makeEvent<int>(m_hub, kType, -4)->param->intValue(), -4);
    EXPECT_EQ(makeEvent<Colour>(m_hub, kType, Colour::Red)->param->intValue(), 3);
    EXPECT_EQ(makeEvent<double>(m_hub, kType, 2.5)->param->intValue(), 0);
    EXPECT_EQ((makeRequest<std::string, int>(m_hub, kType, 6)->param->intValue()), 6);
}

TEST_F(EventPayloadTest, IsAlignedAndOfAnySize) {
    struct alignas(std::max_align_t) Aligned {
        char bytes[3];
    };
    using Big = std::array<char, 5000>;

    const Event aligned = makeEvent<Aligned>(m_hub, kType);
    const Event big = makeEvent<Big>(m_hub, kType);

    const auto address = reinterpret_cast<std::uintptr_t>(payload<Aligned>(aligned));
    EXPECT_NE(address, 0U);
    EXPECT_EQ(address % alignof(std::max_align_t), 0U);
    ASSERT_NE(payload<Big>(big), nullptr);
    EXPECT_EQ((*payload<Big>(big))[4999], 0);
}

TEST_F(EventPayloadTest, WhoseConstructorThrowsLeavesNothing) {
    EXPECT_THROW((void)makeEvent<Throws>(m_hub, kType), std::runtime_error);
}

TEST_F(EventPayloadTest, WithoutMemoryThrowsBadAlloc) {
    const Event warm = makeEvent<std::array<char, 5000>>(m_hub, kType);
    const test::FailCall noMemory(test::Call::New, 0, test::When().everyTime());

    EXPECT_THROW((void)(makeEvent<std::array<char, 5000>>(m_hub, kType)), std::bad_alloc);
}

TEST_F(EventPayloadTest, ReachesAHandler) {
    Inbox inbox;
    EventHub hub(kPeer);
    ASSERT_EQ(hub.registerHandler(kType, inbox.handler()), 0);

    ASSERT_EQ(hub.receiveEvent(makeEvent<ChannelInfo>(m_hub, kType, 7, "Seven")), 0);
    ASSERT_TRUE(inbox.waitFor(1));

    ASSERT_NE(payload<ChannelInfo>(inbox.events()[0]), nullptr);
    EXPECT_EQ(payload<ChannelInfo>(inbox.events()[0])->name, "Seven");
}

// Replies.

using EventReplyTest = EventPayloadTest;

TEST_F(EventReplyTest, IsNoneBeforeItIsFilled) {
    const Event request = makeRequest<ChannelInfo>(m_hub, kType);

    EXPECT_EQ(replyOf<ChannelInfo>(request), nullptr);
    EXPECT_NE(payload<NoPayload>(request), nullptr);
}

TEST_F(EventReplyTest, IsWhatItWasFilledWith) {
    const Event request = makeRequest<ChannelInfo, std::string>(m_hub, kType, "which one?");

    EXPECT_TRUE(fillReply<ChannelInfo>(request, 7, "Seven"));

    ASSERT_NE(replyOf<ChannelInfo>(request), nullptr);
    EXPECT_EQ(replyOf<ChannelInfo>(request)->name, "Seven");
    ASSERT_NE(payload<std::string>(request), nullptr);
    EXPECT_EQ(*payload<std::string>(request), "which one?");
}

TEST_F(EventReplyTest, IsThatOfTheFirst) {
    const Event request = makeRequest<ChannelInfo>(m_hub, kType);

    EXPECT_TRUE(fillReply<ChannelInfo>(request, 7, "Seven"));
    EXPECT_FALSE(fillReply<ChannelInfo>(request, 8, "Eight"));

    EXPECT_EQ(replyOf<ChannelInfo>(request)->number, 7);
}

TEST_F(EventReplyTest, IsRefusedWhereThereIsNoRoomForIt) {
    EXPECT_FALSE(fillReply<ChannelInfo>(nullptr, 7, "Seven"));
    EXPECT_FALSE(fillReply<ChannelInfo>(m_hub.createEvent(kType), 7, "Seven"));
    EXPECT_FALSE(fillReply<int>(makeRequest<ChannelInfo>(m_hub, kType), 7));
    EXPECT_FALSE(
        fillReply<ChannelInfo>(makeEvent<ChannelInfo>(m_hub, kType, 7, "Seven"), 8, "Eight"));
    EXPECT_EQ(replyOf<ChannelInfo>(nullptr), nullptr);
}

TEST_F(EventReplyTest, CanBeFilledAfterAConstructorHasThrown) {
    struct Picky {
        explicit Picky(int number) {
            if (number < 0) throw std::runtime_error("negative");
        }
    };
    const Event request = makeRequest<Picky>(m_hub, kType);

    EXPECT_THROW((void)fillReply<Picky>(request, -1), std::runtime_error);
    EXPECT_EQ(replyOf<Picky>(request), nullptr);
    EXPECT_TRUE(fillReply<Picky>(request, 1));
    EXPECT_NE(replyOf<Picky>(request), nullptr);
}

TEST_F(EventReplyTest, IsDestroyedOnceWithTheRequest) {
    int alive = 0;
    Event request = makeRequest<Counted, Counted>(m_hub, kType, &alive);
    ASSERT_TRUE(fillReply<Counted>(request, &alive));
    ASSERT_EQ(alive, 2);

    request.reset();

    EXPECT_EQ(alive, 0);
}

TEST_F(EventReplyTest, ComesWithASynchronousSend) {
    EventHub hub(kPeer);
    ASSERT_EQ(hub.registerHandler(kType,
                                  [](Event request) {
                                      EXPECT_TRUE(fillReply<ChannelInfo>(request, 7, "Seven"));
                                      request->replyResult(0);
                                  }),
              0);
    const HubRegistration registration(&hub);
    const Event request = makeRequest<ChannelInfo>(m_hub, kType);

    ASSERT_EQ(hub.sendEventSync(request, kPeer, -1), 0);

    ASSERT_NE(replyOf<ChannelInfo>(request), nullptr);
    EXPECT_EQ(replyOf<ChannelInfo>(request)->name, "Seven");
}

TEST_F(EventReplyTest, MayComeAfterTheCallerHasGivenUp) {
    test::Event mayFill;
    test::Event filled;
    int alive = 0;
    {
        EventHub hub(kPeer);
        ASSERT_EQ(hub.registerHandler(kType,
                                      [&](Event request) {
                                          ASSERT_TRUE(mayFill.wait());
                                          EXPECT_TRUE(fillReply<Counted>(request, &alive));
                                          request->replyResult(0);
                                          filled.set();
                                      }),
                  0);
        const HubRegistration registration(&hub);
        Event request = makeRequest<Counted>(m_hub, kType);

        EXPECT_EQ(hub.sendEventSync(request, kPeer, 1), kEventResultTimeout);
        EXPECT_EQ(replyOf<Counted>(request), nullptr);
        request.reset();
        mayFill.set();
        ASSERT_TRUE(filled.wait());
    }

    EXPECT_EQ(alive, 0);
}

TEST_F(EventReplyTest, IsWholeWhenItIsSeen) {
    const Event request = makeRequest<ChannelInfo>(m_hub, kType);
    std::thread handler([&] { EXPECT_TRUE(fillReply<ChannelInfo>(request, 7, "Seven")); });

    const ChannelInfo* p_reply = nullptr;
    while (p_reply == nullptr) p_reply = replyOf<ChannelInfo>(request);

    EXPECT_EQ(p_reply->name, "Seven");
    handler.join();
}

// Modules.

/// A module, while it is loaded.
class LoadedModule {
public:
    explicit LoadedModule(const char* path)
        : m_path(path), m_handle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
        if (m_handle == nullptr) throw std::runtime_error(dlerror());
        m_module = reinterpret_cast<PayloadModuleEntry>(dlsym(m_handle, kPayloadModuleEntry))();
    }
    ~LoadedModule() { unload(); }

    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    const PayloadModule* operator->() const { return m_module; }

    void unload() {
        if (m_handle != nullptr) (void)dlclose(std::exchange(m_handle, nullptr));
    }
    bool isLoaded() const {
        void* const p_handle = dlopen(m_path, RTLD_NOW | RTLD_NOLOAD);
        if (p_handle != nullptr) (void)dlclose(p_handle);
        return p_handle != nullptr;
    }

private:
    const char* m_path;
    void* m_handle;
    const PayloadModule* m_module = nullptr;
};

class PayloadModuleTest : public EventPayloadTest {
protected:
    LoadedModule m_one{TEVALON_TEST_PAYLOAD_MODULE_ONE};
    LoadedModule m_two{TEVALON_TEST_PAYLOAD_MODULE_TWO};
};

TEST_F(PayloadModuleTest, ModulesExchangePayloads) {
    EXPECT_EQ(m_two->numberOfShared(m_one->makeShared(m_hub, 4)), 4);
    EXPECT_EQ(m_one->numberOfShared(m_two->makeShared(m_hub, 5)), 5);
    EXPECT_EQ(m_one->numberOfShared(makeEvent<SharedPayload>(m_hub, kType, 6, "")), 6);
    const Event event = m_two->makeShared(m_hub, 7);
    ASSERT_NE(payload<SharedPayload>(event), nullptr);
    EXPECT_EQ(payload<SharedPayload>(event)->number, 7);
}

TEST_F(PayloadModuleTest, ModulesReplyToEachOther) {
    const Event request = m_one->makeRequest(m_hub);

    EXPECT_EQ(m_one->filled(request), -1);
    EXPECT_TRUE(m_two->fill(request, 8));

    EXPECT_EQ(m_one->filled(request), 8);
    EXPECT_NE(payload<SharedList<int>>(request), nullptr);
    EXPECT_EQ(payload<SharedList<long>>(request), nullptr);
}

TEST_F(PayloadModuleTest, AnUnnamedNamespacesTypeIsEachModulesOwn) {
    const Event ofOne = m_one->makePrivate(m_hub);
    const Event ofTwo = m_two->makePrivate(m_hub);

    EXPECT_TRUE(m_one->isPrivate(ofOne));
    EXPECT_TRUE(m_two->isPrivate(ofTwo));
    EXPECT_FALSE(m_one->isPrivate(ofTwo));
    EXPECT_FALSE(m_two->isPrivate(ofOne));
}

TEST_F(PayloadModuleTest, ModulesAreUnloaded) {
    EXPECT_EQ(m_two->numberOfShared(m_one->makeShared(m_hub, 4)), 4);
    EXPECT_TRUE(m_two->fill(m_one->makeRequest(m_hub), 4));
    ASSERT_TRUE(m_one.isLoaded());

    m_one.unload();
    EXPECT_FALSE(m_one.isLoaded());
    EXPECT_EQ(m_two->numberOfShared(m_two->makeShared(m_hub, 5)), 5);
    m_two.unload();
    EXPECT_FALSE(m_two.isLoaded());
}

// A name that is another type's in another file: "ChannelInfo" is in no namespace here.
TEST(TypeNameTest, IsTheTypesNameAlone) {
    using internal::TypeNameOf;

    EXPECT_EQ(TypeNameOf<int>::text(), "int");
    EXPECT_EQ(TypeNameOf<ChannelInfo>::text(), "ChannelInfo");
    EXPECT_EQ(TypeNameOf<other::ChannelInfo>::text(), "other::ChannelInfo");
    EXPECT_EQ(TypeNameOf<SharedList<int>>::text(), "SharedList<int>");
}

#ifndef __clang__  // Leaves the function out of the name.
TEST(TypeNameTest, ATypeOfAnyFunctionIsOfOneUnit) {
    using internal::TypeNameOf;
    const auto isOfOneUnit = [](const auto& value) {
        return TypeNameOf<std::decay_t<decltype(value)>>::isOfOneUnit();
    };
    WithLocalTypes functions;

    EXPECT_TRUE(isOfOneUnit(WithLocalTypes::ofStatic()));
    EXPECT_TRUE(isOfOneUnit(functions.ofConst()));
    EXPECT_TRUE(isOfOneUnit(functions.ofVolatile()));
    EXPECT_TRUE(isOfOneUnit(functions.ofLvalue()));
    EXPECT_TRUE(isOfOneUnit(std::move(functions).ofRvalue()));
}
#endif

TEST(TypeNameTest, TellsWhatOtherFilesMayCallTheSame) {
    using internal::TypeNameOf;
    const auto lambda = [](int) {};

    EXPECT_TRUE(TypeNameOf<Foreign>::isOfOneUnit());
    EXPECT_TRUE(TypeNameOf<SharedList<Foreign>>::isOfOneUnit());
    EXPECT_TRUE(TypeNameOf<decltype(lambda)>::isOfOneUnit());
    EXPECT_FALSE(TypeNameOf<ChannelInfo>::isOfOneUnit());
    EXPECT_FALSE(TypeNameOf<SharedList<std::string>>::isOfOneUnit());
    EXPECT_FALSE((TypeNameOf<void (ChannelInfo::*)(int)>::isOfOneUnit()));
    EXPECT_FALSE((TypeNameOf<SharedList<void(int)>*>::isOfOneUnit()));
}

}  // namespace
