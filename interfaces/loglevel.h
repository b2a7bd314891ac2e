#ifndef ORVANE_INTERFACES_LOGLEVEL_H
#define ORVANE_INTERFACES_LOGLEVEL_H

#include <sstream>

// The level of a log line, written at its start as "<Letter> ".
struct loglevel {
    virtual ~loglevel();
    virtual char Letter() const;  // '?' for the bare tag
};

struct loglevelerror : loglevel {
    char Letter() const override;  // 'E'
};

struct loglevelinfo : loglevel {
    char Letter() const override;  // 'I'
};

std::ostringstream& operator<<(std::ostringstream& stream, const loglevel& level);

#endif
