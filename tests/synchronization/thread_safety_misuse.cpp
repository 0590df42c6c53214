// Compiles as it stands under clang's thread-safety analysis; each macro adds a mistake.

#include <chrono>

#include "base/synchronization/auto_lock.h"
#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock_guard.h"
#include "base/synchronization/relockable_lock.h"
#include "base/synchronization/unique_lock.h"

using tevalon::base::AutoLock;
using tevalon::base::ConditionVariable;
using tevalon::base::LockGuard;
using tevalon::base::Mutex;
using tevalon::base::RelockableLock;
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

    bool waitForMoneyAWhile() TEVALON_EXCLUDES(m_mutex) {
        RelockableLock lock(m_mutex);
        const auto isRich = [this]() TEVALON_REQUIRES(m_mutex) { return m_balance != 0; };
        m_changed.wait(lock, isRich);
        --m_balance;
        lock.unlock();
        deposit(1);
        lock.lock();
        ++m_balance;
        return m_changed.wait_for(lock, std::chrono::seconds(1), isRich);
    }

    bool tryToDeposit(int amount) TEVALON_EXCLUDES(m_mutex) {
        if (!m_mutex.try_lock()) return false;
        add(amount);
        m_mutex.unlock();
        m_mutex.lock();
        add(amount);
        m_mutex.unlock();
        return true;
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
#ifdef TEVALON_TEST_WRITE_AFTER_UNLOCK
        m_mutex.lock();
        m_mutex.unlock();
        m_balance = 0;
#endif
#ifdef TEVALON_TEST_STAYS_LOCKED
        m_mutex.lock();
#endif
#ifdef TEVALON_TEST_UNLOCKED_TWICE
        m_mutex.lock();
        m_mutex.unlock();
        m_mutex.unlock();
#endif
#ifdef TEVALON_TEST_WRITE_AFTER_TRY
        const bool isLocked = m_mutex.try_lock();
        m_balance = 0;
        if (isLocked) m_mutex.unlock();
#endif
#ifdef TEVALON_TEST_WRITE_WHILE_RELEASED
        RelockableLock lock(m_mutex);
        lock.unlock();
        m_balance = 0;
#endif
#ifdef TEVALON_TEST_WRITE_AFTER_RELOCKABLE_LOCK
        { const RelockableLock lock(m_mutex); }
        m_balance = 0;
#endif
#ifdef TEVALON_TEST_RELOCKED_TWICE
        RelockableLock lock(m_mutex);
        lock.unlock();
        lock.lock();
        lock.lock();
#endif
#ifdef TEVALON_TEST_UNANNOTATED_PREDICATE
        RelockableLock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_balance != 0; });
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
    (void)account.waitForMoneyAWhile();
    (void)account.tryToDeposit(1);
    account.misuse();
}
