#include "Z/ZStack.h"

ZStack::~ZStack() = default;
ZAbstractStack::~ZAbstractStack() = default;

void ZAbstractStack::popall() {
    // Kept: a null member ends it, because the end of a stack is known by the null of pop() alone.
    while (pop() != nullptr)
        continue;
}

ZArrayStack::ZArrayStack(unsigned int room) : ZArrayList(room, 0) {}

ZArrayStack::~ZArrayStack() = default;

ZObject* ZArrayStack::clone() const { return new ZArrayStack(*this); }

void ZArrayStack::push(ZObject* obj) { add(obj); }

ZObject* ZArrayStack::pop() {
    if (isEmpty()) return nullptr;
    ZObject* const top = get(size() - 1);
    remove(size() - 1);
    return top;
}
