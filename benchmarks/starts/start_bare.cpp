// start_bare [event]: a process that ends at once, or when a thread has been handed something.

#include <future>
#include <thread>

int main(int argc, char**) {
    if (argc == 1) return 0;
    std::promise<int> event;
    std::promise<int> reply;
    std::thread handler([&] { reply.set_value(event.get_future().get()); });
    event.set_value(0);
    const int result = reply.get_future().get();
    handler.join();
    return result;
}
