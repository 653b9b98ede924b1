/// Blocks of bytes.
#ifndef Z_ZBUFFER_H
#define Z_ZBUFFER_H

#include "Z/ztags.h"

#include <memory>

#include "Z/ZObject.h"
#include "Z/zexport.h"
#include "Z/zfree.h"

/// What a buffer offers. Lengths are bytes and fit 32 bits, on 32 bits 31, as any block there does:
/// a greater one raises ZOutOfMemoryException (message 1) before anything changes. Nothing locks.
class ZFC_API ZBufferInterface {
  public:
    // in slot order: do not sort
    virtual ~ZBufferInterface();
    /// Makes the buffer `n` bytes long.
    virtual void setLength(unsigned long n) = 0;
    /// Gives the buffer `n` bytes of `data`.
    virtual void setBuffer(unsigned long n, void* data) = 0;
    /// Hands length and block to the caller and leaves the buffer empty.
    virtual void takeBuffer(unsigned long& n, void*& data) = 0;
    /// Length in bytes.
    [[nodiscard]] virtual unsigned long getLength() const = 0;
    /// The block, which stays the buffer's; null when there is none. It moves when the buffer
    /// grows.
    [[nodiscard]] virtual void* getBuffer() const = 0;

  protected:
    ZBufferInterface() = default;
    ZBufferInterface(ZBufferInterface const&) = default;
    ZBufferInterface& operator=(ZBufferInterface const&) = default;
};

/// The part of a buffer that needs no knowledge of its storage.
class ZFC_API ZAbstractBuffer : public ZObject, public ZBufferInterface {
  public:
    // in slot order: do not sort
    ~ZAbstractBuffer() override;
    /// With a buffer: -1, 0 or 1; the shorter one is smaller, and of equal lengths the first
    /// different byte (unsigned) decides; a view of no block is smaller than its equals in length.
    /// With any other object: by address. hash() stays that of ZObject, so a buffer is no key for a
    /// hash map.
    [[nodiscard]] int compare(ZObject const& other) const override;

    /// As getBuffer().
    operator void*() const { return getBuffer(); }

  protected:
    ZAbstractBuffer() = default;
    ZAbstractBuffer(ZAbstractBuffer const&) = default;
    ZAbstractBuffer& operator=(ZAbstractBuffer const&) = default;
};

/// Owns a block that it can grow.
///
/// What makes the block longer throws ZOutOfMemoryException (message 1) when there is no memory for
/// it; the buffer is then empty. Null data of a length that is not 0 raises
/// ZInvalidParameterException (message 22), and nothing changes.
class ZFC_API ZBuffer : public ZAbstractBuffer {
  public:
    /// Empty: length 0, no block.
    ZBuffer() = default;
    /// A copy of `length` bytes.
    ZBuffer(unsigned long length, void* data);
    /// A copy of the text with its terminating NUL; empty for null.
    explicit ZBuffer(char const* text);
    /// A copy of the block, which is only as long as the length.
    ZBuffer(ZBuffer const& other);
    ZBuffer& operator=(ZBuffer const& other);

    // in slot order: do not sort
    ~ZBuffer() override;
    [[nodiscard]] ZObject* clone() const override;
    /// Makes the block exactly `n` bytes long when that is more than now; new bytes have no
    /// particular value. A smaller length keeps the block, 0 frees it.
    void setLength(unsigned long n) override;
    /// setLength(), then copies `n` bytes of `data`, which may lie in this buffer's block, also
    /// behind the length that it was cut to.
    void setBuffer(unsigned long n, void* data) override;
    /// The caller frees the block with free().
    void takeBuffer(unsigned long& n, void*& data) override;
    [[nodiscard]] unsigned long getLength() const override { return length; }
    [[nodiscard]] void* getBuffer() const override { return buffer.get(); }

    /// As the constructor of a text does.
    void setBuffer(char const* text);
    /// Frees the block and takes `data` over, `n` bytes from malloc or realloc. `data` stays the
    /// caller's when it throws. Data in this buffer's own block stays there, at its beginning.
    void setBufferNoCopy(unsigned long n, void* data);

  private:
    void grow(unsigned int wanted);
    [[nodiscard]] bool holds(void const* data) const;

    unsigned int length = 0;              // valid bytes, at most the size of the block
    std::unique_ptr<void, ZFree> buffer;  // from realloc; null when empty
};

/// A view of somebody else's block: nothing is copied or freed, and a copy is a view of the same
/// block, which outlives them all.
class ZFC_API ZConstBuffer : public ZAbstractBuffer {
  public:
    ZConstBuffer() = default;
    /// A view of `length` bytes at `data`, which stay the caller's.
    ZConstBuffer(unsigned long length, void* data);
    ZConstBuffer(ZConstBuffer const&) = default;
    ZConstBuffer& operator=(ZConstBuffer const&) = default;

    // in slot order: do not sort
    ~ZConstBuffer() override;
    [[nodiscard]] ZObject* clone() const override;
    /// Stores the length alone.
    void setLength(unsigned long n) override;
    /// Stores both.
    void setBuffer(unsigned long n, void* data) override;
    void takeBuffer(unsigned long& n, void*& data) override;
    [[nodiscard]] unsigned long getLength() const override { return length; }
    [[nodiscard]] void* getBuffer() const override { return buffer; }

  private:
    unsigned int length = 0;  // bytes of the view
    void* buffer = nullptr;   // not owned
};

#endif
