#include "timer/task_queue.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace tevalon::base::timer {

TaskQueue::~TaskQueue() {
    while (!empty()) (void)popFront();
}

// A time that is no number is greater than none, as it would be to a walk.
double TaskQueue::comparable(double fireTime) {
    return std::isnan(fireTime) ? -std::numeric_limits<double>::infinity() : fireTime;
}

void TaskQueue::update(Node* p_node) {
    p_node->greatest = p_node->fireTime;
    for (const Node* p_child : {p_node->p_left, p_node->p_right}) {
        if (p_child != nullptr) p_node->greatest = std::max(p_node->greatest, p_child->greatest);
    }
}

// Whether a task of this time goes in front of the node: something greater stands at the node
// or, further in front, below it on the left.
bool TaskQueue::isInFront(const Node* p_node, double fireTime) {
    if (p_node->fireTime > fireTime) return true;
    return p_node->p_left != nullptr && p_node->p_left->greatest > fireTime;
}

void TaskQueue::insert(Task task) {
    // Nothing is greater than a time that is no number, which therefore goes to the end.
    const double fireTime = task->getNextFireTime();
    auto p_new = std::make_unique<Node>();
    p_new->task = std::move(task);
    p_new->fireTime = fireTime;
    p_new->priority = nextPriority();
    m_root = insertBelow(m_root, p_new.release());
    ++m_size;
}

TaskQueue::Node* TaskQueue::insertBelow(Node* p_node, Node* p_new) {
    if (p_node == nullptr || p_new->priority > p_node->priority) {
        split(p_node, p_new->fireTime, &p_new->p_left, &p_new->p_right);
        p_new->fireTime = comparable(p_new->fireTime);
        update(p_new);
        return p_new;
    }
    if (isInFront(p_node, p_new->fireTime)) {
        p_node->p_left = insertBelow(p_node->p_left, p_new);
    } else {
        p_node->p_right = insertBelow(p_node->p_right, p_new);
    }
    update(p_node);
    return p_node;
}

void TaskQueue::split(Node* p_node, double fireTime, Node** pp_front, Node** pp_back) {
    if (p_node == nullptr) {
        *pp_front = nullptr;
        *pp_back = nullptr;
    } else if (isInFront(p_node, fireTime)) {
        split(p_node->p_left, fireTime, pp_front, &p_node->p_left);
        update(p_node);
        *pp_back = p_node;
    } else {
        split(p_node->p_right, fireTime, &p_node->p_right, pp_back);
        update(p_node);
        *pp_front = p_node;
    }
}

TaskQueue::Task TaskQueue::front() const {
    if (m_root == nullptr) return nullptr;
    const Node* p_first = m_root;
    while (p_first->p_left != nullptr) p_first = p_first->p_left;
    return p_first->task;
}

TaskQueue::Task TaskQueue::popFront() {
    if (m_root == nullptr) return nullptr;
    Node* p_first = nullptr;
    m_root = removeFirst(m_root, &p_first);
    --m_size;
    const std::unique_ptr<Node> first(p_first);
    return std::move(first->task);
}

TaskQueue::Node* TaskQueue::removeFirst(Node* p_node, Node** pp_first) {
    if (p_node->p_left == nullptr) {
        *pp_first = p_node;
        return p_node->p_right;
    }
    p_node->p_left = removeFirst(p_node->p_left, pp_first);
    update(p_node);
    return p_node;
}

// Marsaglia, "Xorshift RNGs", 2003. Any sequence serves that does not follow the times.
std::uint32_t TaskQueue::nextPriority() {
    m_random ^= m_random << 13;
    m_random ^= m_random >> 17;
    m_random ^= m_random << 5;
    return m_random;
}

}  // namespace tevalon::base::timer
