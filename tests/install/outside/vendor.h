/// Classes of somebody who never saw the library, called as some of its own are.
#ifndef VENDOR_H
#define VENDOR_H

namespace vendor {

class ZList {
  public:
    explicit ZList(int size) : count(size) {}
    int size() const;

  private:
    int count;
};

class Voyeur {
  public:
    static char const* name();
};

}  // namespace vendor

#endif
