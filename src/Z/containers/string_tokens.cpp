/// Collecting the tokens of a string in a list: apart, because lists stand above strings.
#include <memory>

#include "Z/ZList.h"
#include "Z/ZStringTokenizer.h"

void ZStringTokenizer::list(ZArrayList& out) {
    while (hasMore()) {
        std::unique_ptr<ZObject> token(getNext()->clone());
        out.addNoCopy(token.get());
        static_cast<void>(token.release());  // taken over
    }
}
