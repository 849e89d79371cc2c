// The text form of error buffers.
#include "error.h"
#include "text_contract.h"

#include <array>
#include <span>
#include <string>

namespace {

struct name_of {
    uint32_t number;
    const char* name;
};
constexpr std::array locations{
    name_of{QEL_LOC_NONE, "none"},     name_of{QEL_LOC_FLIST, "flist"},      name_of{QEL_LOC_CONF, "conf"},
    name_of{QEL_LOC_NUMBER, "number"}, name_of{QEL_LOC_APPL, "application"},
};
constexpr std::array classes{
    name_of{QEL_CLASS_NONE, "none"},
    name_of{QEL_CLASS_SYSTEM, "system"},
    name_of{QEL_CLASS_APPL, "application"},
};
constexpr std::array errors{
    name_of{QEL_ERR_NONE, "none"},
    name_of{QEL_ERR_NO_MEM, "out of memory"},
    name_of{QEL_ERR_NOT_FOUND, "not found"},
    name_of{QEL_ERR_BAD_TYPE, "wrong type"},
    name_of{QEL_ERR_BAD_ARG, "bad argument"},
    name_of{QEL_ERR_TOO_SMALL, "buffer too small"},
    name_of{QEL_ERR_BAD_VALUE, "bad value"},
};

// "2 (not found)"; numbers of the application stand alone.
std::string described(uint32_t number, std::span<const name_of> names)
{
    std::string text = std::to_string(number);
    for (const name_of& known : names) {
        if (known.number == number) {
            text += std::string(" (") + known.name + ")";
        }
    }
    return text;
}

std::string rendered(const qel_errbuf_t& eb)
{
    std::string text = "error " + described(eb.errnum, errors) + ", class " +
                       described(eb.err_class, classes) + ", location " + described(eb.location, locations);
    if (eb.field != 0) {
        text += ", field " + std::to_string(QEL_FLD_NUM(eb.field)) + " of type " +
                std::to_string(QEL_FLD_TYPE(eb.field)) + ", element " + std::to_string(eb.elem_id);
    }
    return text;
}

} // namespace

void qel_errbuf_sprint(qel_errbuf_t* eb, char** text, int32_t* len, int32_t /*flags*/, int32_t* status)
{
    if (status == nullptr) {
        return;
    }
    if (eb == nullptr || text == nullptr || len == nullptr) {
        *status = QEL_ERR_BAD_ARG;
        return;
    }
    qel_errbuf_t failure{};
    qel::guarded(&failure, QEL_LOC_NONE,
                 [&] { failure.errnum = qel::hand_out_text(rendered(*eb), text, len); });
    *status = static_cast<int32_t>(failure.errnum);
}
