// What modules compiled earlier rely on: the order of the fields and of the virtual functions.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/threading/runnable.h"

namespace {

using tevalon::base::Threading::Runnable;

/// Remembers which function was called last.
class Recorder : public Runnable {
public:
    explicit Recorder(std::string* p_last) : Runnable(77), m_last(p_last) {}
    ~Recorder() override { *m_last = "destructor"; }
    std::int32_t run() override { return note("run"); }
    void stop() override { note("stop"); }
    void pause() override { note("pause"); }
    void resume() override { note("resume"); }
    void execute() override { note("execute"); }

    // Sees the deleting destructor.
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void operator delete(void* p_memory) {
        ++s_deletions;
        ::operator delete(p_memory);
    }
    static int s_deletions;

private:
    std::int32_t note(const char* name) {
        *m_last = name;
        return 0;
    }
    std::string* m_last;
};

int Recorder::s_deletions = 0;

/// Calls the virtual function in @p slot as a module compiled against the layout does.
#if defined(__clang__)
__attribute__((no_sanitize("function")))
#endif
void callSlot(Runnable* p_object, std::size_t slot) {
    using Function = void (*)(Runnable*);
    Function* table = nullptr;
    std::memcpy(&table, static_cast<void*>(p_object), sizeof(table));
    table[slot](p_object);
}

TEST(RunnableLayoutTest, VirtualFunctionsAreInTheirSlots) {
    std::string last;
    Recorder recorder(&last);
    const char* const expected[] = {"run", "stop", "pause", "resume", "execute"};

    for (std::size_t i = 0; i < 5; ++i) {
        callSlot(&recorder, 2 + i);
        EXPECT_EQ(last, expected[i]);
    }
}

TEST(RunnableLayoutTest, TheDestructorsComeFirst) {
    std::string last;
    alignas(Recorder) unsigned char memory[sizeof(Recorder)];
    Recorder::s_deletions = 0;

    callSlot(::new (memory) Recorder(&last), 0);
    EXPECT_EQ(last, "destructor");
    EXPECT_EQ(Recorder::s_deletions, 0);

    last.clear();
    callSlot(new Recorder(&last), 1);
    EXPECT_EQ(last, "destructor");
    EXPECT_EQ(Recorder::s_deletions, 1);
}

TEST(RunnableLayoutTest, FieldsAreInTheirOrder) {
    struct Fields {
        void* p_table;
        std::int32_t interval;
        pthread_mutex_t mutex;
        bool stopped;
        bool paused;
        pthread_cond_t condition;
    };
    std::string last;
    Recorder recorder(&last);
    Fields fields;
    static_assert(sizeof(Runnable) == sizeof(Fields));
    std::memcpy(&fields, static_cast<void*>(static_cast<Runnable*>(&recorder)), sizeof(fields));

    EXPECT_EQ(fields.interval, 77);
    EXPECT_FALSE(fields.stopped);
    EXPECT_FALSE(fields.paused);

    recorder.Runnable::pause();
    std::memcpy(&fields, static_cast<void*>(static_cast<Runnable*>(&recorder)), sizeof(fields));
    EXPECT_TRUE(fields.paused);
    EXPECT_FALSE(fields.stopped);

    recorder.Runnable::stop();
    std::memcpy(&fields, static_cast<void*>(static_cast<Runnable*>(&recorder)), sizeof(fields));
    EXPECT_FALSE(fields.paused);
    EXPECT_TRUE(fields.stopped);
}

}  // namespace
