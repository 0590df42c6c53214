// The table of handlers, which is looked up without a lock while it grows.
#include <thread>

#include "event_dispatcher/handler_table.h"
#include "testkit/explore.h"

using tevalon::base::event_dispatcher::HandlerTable;

namespace {

constexpr int kListed = 4;  // More are in the hash table.

void add(HandlerTable* p_table, int type) {
    p_table->add({INT32_MIN, type, [](const auto&) {}});
}

}  // namespace

TEVALON_SCENARIO(HandlerTableListGrows) {
    HandlerTable table;
    add(&table, 1);
    std::thread other([&] { add(&table, 2); });
    TEVALON_EXPECT(table.find(7, 1) != nullptr);
    if (const auto* const p_found = table.find(7, 2)) {
        TEVALON_EXPECT(p_found->eventType == 2 && p_found->handler);
    }
    other.join();
    TEVALON_EXPECT(table.find(7, 2) != nullptr);
}

TEVALON_SCENARIO(HandlerTableIsHashed) {
    HandlerTable table;
    for (int type = 0; type < kListed; ++type) add(&table, type);
    std::thread other([&] {
        add(&table, kListed);
        add(&table, kListed);
    });
    if (const auto* const p_found = table.find(7, kListed)) {
        TEVALON_EXPECT(p_found->eventType == kListed && p_found->handler);
    }
    other.join();
    TEVALON_EXPECT(table.find(7, kListed) != nullptr);
}
