// Chains of records linked through `next`.
#pragma once

namespace tarquel {

// True when the chain that begins with `first` leads back into itself: a walk with two paces meets.
template <typename Record>
bool IsEndless(const Record& first) {
    const Record* slow = &first;
    const Record* fast = &first;
    while (fast->next != nullptr && fast->next->next != nullptr) {
        slow = slow->next;
        fast = fast->next->next;
        if (slow == fast) return true;
    }
    return false;
}

}  // namespace tarquel
