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

double TaskQueue::insert(Task task) {
    // Nothing is greater than a time that is no number, which therefore goes to the end.
    const double fireTime = task->getNextFireTime();
    const double counted = comparable(fireTime);
    auto* const p_new =
        new Node{std::move(task), counted, counted, nullptr, nullptr, nextPriority()};

    // Down to where its priority belongs; everything that is passed has it below.
    bool isFirst = true;
    Node** pp_place = &m_root;
    while (*pp_place != nullptr && (*pp_place)->priority >= p_new->priority) {
        Node* const p_node = *pp_place;
        const bool goesInFront = isInFront(p_node, fireTime);
        p_node->greatest = std::max(p_node->greatest, counted);
        isFirst = isFirst && goesInFront;
        pp_place = goesInFront ? &p_node->p_left : &p_node->p_right;
    }
    split(*pp_place, fireTime, &p_new->p_left, &p_new->p_right);
    update(p_new);
    *pp_place = p_new;

    if (isFirst && p_new->p_left == nullptr) m_first = p_new;
    ++m_size;
    return fireTime;
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
    return m_first == nullptr ? nullptr : m_first->task;
}

double TaskQueue::frontFireTime() const {
    return m_first == nullptr ? 0.0 : m_first->task->getNextFireTime();
}

TaskQueue::Task TaskQueue::popFront() {
    if (m_root == nullptr) return nullptr;
    const std::unique_ptr<Node> first(m_first);
    m_root = withoutFirst(m_root);
    m_first = m_root;
    while (m_first != nullptr && m_first->p_left != nullptr) m_first = m_first->p_left;
    --m_size;
    return std::move(first->task);
}

TaskQueue::Node* TaskQueue::withoutFirst(Node* p_node) {
    if (p_node->p_left == nullptr) return p_node->p_right;
    p_node->p_left = withoutFirst(p_node->p_left);
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
