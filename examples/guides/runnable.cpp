// runnable.cpp: a job that is repeated, on a thread of one's own.
#include <cstdio>
#include <thread>

#include "base/singleton.h"
#include "base/threading.h"

using tevalon::base::DefaultSingletonTraits;
using tevalon::base::Singleton;
using tevalon::base::Threading::Runnable;

namespace {

// One instance per process, made on first use, never destroyed.
class Server {
public:
    static Server* GetInstance() {
        return Singleton<Server, DefaultSingletonTraits<Server>, Server>::GetInstance();
    }
    int votes() { return ++m_votes; }

private:
    int m_votes = 0;
};

class Poll : public Runnable {
public:
    Poll() : Runnable(/*interval=*/5) {}  // Milliseconds of sleep before each round.
    void execute() override {
        const int votes = Server::GetInstance()->votes();
        std::printf("votes: %d\n", votes);
        if (votes == 3) stop();  // From any thread, this one included.
    }
};

}  // namespace

int main() {
    Poll poll;
    std::thread thread([&poll] { poll.run(); });
    thread.join();  // Returns one round after stop() at the latest.
    std::printf("running: %d\n", poll.running());
}
