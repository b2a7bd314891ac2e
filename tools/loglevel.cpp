#include "interfaces/loglevel.h"

loglevel::~loglevel() = default;

char loglevel::Letter() const {
    return '?';
}

char loglevelerror::Letter() const {
    return 'E';
}

char loglevelinfo::Letter() const {
    return 'I';
}

std::ostringstream& operator<<(std::ostringstream& stream, const loglevel& level) {
    stream << level.Letter() << ' ';
    return stream;
}
