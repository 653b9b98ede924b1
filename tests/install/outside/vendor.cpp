#include "vendor.h"

int vendor::ZList::size() const { return count; }
char const* vendor::Voyeur::name() { return "vendor"; }
