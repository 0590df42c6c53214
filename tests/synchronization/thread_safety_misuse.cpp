// Compiles as it stands under clang's thread-safety analysis; each macro adds a mistake.

#include "base/synchronization/auto_lock.h"
#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock_guard.h"
#include "base/synchronization/unique_lock.h"

using tevalon::base::AutoLock;
using tevalon::base::ConditionVariable;
using tevalon::base::LockGuard;
using tevalon::base::Mutex;
using tevalon::base::UniqueLock;

class Account {
public:
    void deposit(int amount) TEVALON_EXCLUDES(m_mutex) {
        const AutoLock lock(m_mutex);
        add(amount);
#ifdef TEVALON_TEST_LOCKED_TWICE
        const LockGuard again(m_mutex);
#endif
#ifdef TEVALON_TEST_EXCLUDED_LOCK
        deposit(amount);
#endif
    }

    void waitForMoney() TEVALON_EXCLUDES(m_mutex) {
        UniqueLock lock(m_mutex);
        while (m_balance == 0) m_changed.wait(lock);
    }

    int balance() TEVALON_EXCLUDES(m_mutex) {
        const LockGuard lock(m_mutex);
        return m_balance;
    }

    void misuse() {
#ifdef TEVALON_TEST_UNLOCKED_WRITE
        m_balance = 0;
#endif
#ifdef TEVALON_TEST_WRITE_AFTER_AUTO_LOCK
        { const AutoLock lock(m_mutex); }
        m_balance = 0;
#endif
#ifdef TEVALON_TEST_WRITE_AFTER_UNIQUE_LOCK
        { const UniqueLock lock(m_mutex); }
        m_balance = 0;
#endif
#ifdef TEVALON_TEST_WRITE_AFTER_LOCK_GUARD
        { const LockGuard lock(m_mutex); }
        m_balance = 0;
#endif
#ifdef TEVALON_TEST_WRONG_LOCK
        const AutoLock lock(m_other);
        m_balance = 0;
#endif
#ifdef TEVALON_TEST_MISSING_REQUIRED_LOCK
        add(1);
#endif
    }

private:
    void add(int amount) TEVALON_REQUIRES(m_mutex) {
        m_balance += amount;
        m_changed.notify_one();
    }

    Mutex m_mutex;
    Mutex m_other;
    ConditionVariable m_changed;
    int m_balance TEVALON_GUARDED_BY(m_mutex) = 0;
};

void useAll(Account& account) {
    account.deposit(1);
    account.waitForMoney();
    account.misuse();
}
