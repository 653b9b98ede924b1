/// A stack of objects.
#ifndef Z_ZSTACK_H
#define Z_ZSTACK_H

#include "Z/ztags.h"

#include "Z/ZList.h"
#include "Z/ZObject.h"
#include "Z/zexport.h"

/// What a stack offers. It owns none of its members; nothing locks.
class ZFC_API ZStack {
  public:
    // in slot order: do not sort
    virtual ~ZStack();
    /// Puts `obj` on top. Throws ZOutOfMemoryException (message 1) and is then as it was.
    virtual void push(ZObject* obj) = 0;
    /// Takes the top member off and returns it; null when the stack is empty.
    virtual ZObject* pop() = 0;
    /// Pops until pop() returns null. A null member therefore ends it, and those below stay.
    virtual void popall() = 0;

  protected:
    ZStack() = default;
    ZStack(ZStack const&) = default;
    ZStack& operator=(ZStack const&) = default;
};

/// The part of a stack that needs no knowledge of its storage.
class ZFC_API ZAbstractStack : public ZStack {
  public:
    // in slot order: do not sort
    ~ZAbstractStack() override;
    void popall() override;

  protected:
    ZAbstractStack() = default;
    ZAbstractStack(ZAbstractStack const&) = default;
    ZAbstractStack& operator=(ZAbstractStack const&) = default;
};

/// A list used as a stack: its last member is on top.
class ZFC_API ZArrayStack : public ZArrayList, public ZAbstractStack {
  public:
    /// Room for `room` members at first, as ZArrayList.
    explicit ZArrayStack(unsigned int room);
    ZArrayStack(ZArrayStack const&) = default;
    ZArrayStack& operator=(ZArrayStack const&) = default;

    // in slot order: do not sort
    ~ZArrayStack() override;
    [[nodiscard]] ZObject* clone() const override;
    void push(ZObject* obj) override;
    ZObject* pop() override;
};

#endif
