// Field lists: storing, finding and copying. Their text form is in flist_text.cpp.
#include "flist.h"

#include "error.h"

#include <cstdlib>

namespace qel {

namespace {

bool is_list_type(uint32_t type)
{
    return type == QEL_TYPE_ARRAY || type == QEL_TYPE_SUBLIST;
}

bool is_known_type(uint32_t type)
{
    switch (type) {
    case QEL_TYPE_INT:
    case QEL_TYPE_STR:
    case QEL_TYPE_XOID:
    case QEL_TYPE_TSTAMP:
    case QEL_TYPE_ARRAY:
    case QEL_TYPE_SUBLIST:
    case QEL_TYPE_DECIMAL:
        return true;
    default:
        return false;
    }
}

// The id that an element is kept under: only arrays tell their elements apart.
int32_t kept_id(uint32_t fld, int32_t elem_id)
{
    return QEL_FLD_TYPE(fld) == QEL_TYPE_ARRAY ? elem_id : 0;
}

list_ptr copy_of(const qel_flist& list);

value copy_of(const value& v)
{
    return std::visit(
        [](const auto& held) -> value {
            if constexpr (std::is_same_v<std::decay_t<decltype(held)>, list_ptr>) {
                return copy_of(*held);
            } else {
                return held;
            }
        },
        v);
}

list_ptr copy_of(const qel_flist& list)
{
    auto copy = std::make_unique<qel_flist>();
    for (const auto& [fld, elements] : list.fields) {
        for (const auto& [elem_id, v] : elements) {
            copy->fields[fld].emplace(elem_id, copy_of(v));
        }
    }
    return copy;
}

// The caller's bytes as a value of the field's type, copied.
value value_from(uint32_t type, const void* bytes)
{
    switch (type) {
    case QEL_TYPE_INT:
        return *static_cast<const int32_t*>(bytes);
    case QEL_TYPE_TSTAMP:
        return *static_cast<const int64_t*>(bytes);
    case QEL_TYPE_STR:
        return std::string(static_cast<const char*>(bytes));
    case QEL_TYPE_XOID:
        return *static_cast<const qel_xoid*>(bytes);
    case QEL_TYPE_DECIMAL:
        return *static_cast<const nmu_decimal*>(bytes);
    default:
        return copy_of(*static_cast<const qel_flist*>(bytes));
    }
}

// Frees what a caller handed over, each kind as its own service does.
void destroy_handed_over(uint32_t type, void* given)
{
    switch (type) {
    case QEL_TYPE_XOID:
        delete static_cast<qel_xoid*>(given);
        break;
    case QEL_TYPE_DECIMAL:
        delete static_cast<nmu_decimal*>(given);
        break;
    case QEL_TYPE_ARRAY:
    case QEL_TYPE_SUBLIST:
        delete static_cast<qel_flist*>(given);
        break;
    default: // malloc'ed text or number; of an unknown type no more is known
        free(given);
        break;
    }
}

void* address_of(value& v)
{
    return std::visit(
        [](auto& held) -> void* {
            using held_type = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<held_type, list_ptr>) {
                return held.get();
            } else if constexpr (std::is_same_v<held_type, std::string>) {
                return held.data();
            } else {
                return &held;
            }
        },
        v);
}

value* find(qel_flist& list, uint32_t fld, int32_t elem_id)
{
    const auto field = list.fields.find(fld);
    if (field == list.fields.end()) {
        return nullptr;
    }
    elements& found = field->second;
    const auto element = elem_id == QEL_ELEM_ANY ? found.begin() : found.find(kept_id(fld, elem_id));
    return element != found.end() ? &element->second : nullptr;
}

// What is wrong with storing into the field; no error number when nothing is.
uint32_t storing_error(const qel_flist* list, uint32_t fld, int32_t elem_id, const void* given)
{
    if (!is_known_type(QEL_FLD_TYPE(fld))) {
        return QEL_ERR_BAD_TYPE;
    }
    const bool no_place = kept_id(fld, elem_id) == QEL_ELEM_ANY;
    return list == nullptr || given == nullptr || given == list || no_place ? QEL_ERR_BAD_ARG : QEL_ERR_NONE;
}

} // namespace

} // namespace qel

qel_flist_t* qel_flist_create(qel_errbuf_t* eb)
{
    return qel::guarded(eb, QEL_LOC_FLIST, [] { return new qel_flist; });
}

void qel_flist_destroy(qel_flist_t* fl, qel_errbuf_t* /*eb*/)
{
    delete fl;
}

qel_flist_t* qel_flist_copy(const qel_flist_t* fl, qel_errbuf_t* eb)
{
    if (fl == nullptr) {
        qel::raise(eb, {QEL_LOC_FLIST, QEL_ERR_BAD_ARG});
        return nullptr;
    }
    return qel::guarded(eb, QEL_LOC_FLIST, [&] { return qel::copy_of(*fl).release(); });
}

void* qeli_flist_get(qel_flist_t* fl, uint32_t fld, int32_t elem_id, int32_t optional, qel_errbuf_t* eb)
{
    if (fl == nullptr) {
        qel::raise(eb, {QEL_LOC_FLIST, QEL_ERR_BAD_ARG, fld, elem_id});
        return nullptr;
    }
    qel::value* found = qel::find(*fl, fld, elem_id);
    if (found == nullptr && optional == 0) {
        qel::raise(eb, {QEL_LOC_FLIST, QEL_ERR_NOT_FOUND, fld, elem_id});
    }
    return found != nullptr ? qel::address_of(*found) : nullptr;
}

void qeli_flist_set(qel_flist_t* fl, uint32_t fld, int32_t elem_id, const void* value, qel_errbuf_t* eb)
{
    if (const uint32_t errnum = qel::storing_error(fl, fld, elem_id, value)) {
        qel::raise(eb, {QEL_LOC_FLIST, errnum, fld, elem_id});
        return;
    }
    qel::guarded(eb, QEL_LOC_FLIST, [&] {
        qel::value copy = qel::value_from(QEL_FLD_TYPE(fld), value);
        fl->fields[fld].insert_or_assign(qel::kept_id(fld, elem_id), std::move(copy));
    });
}

void qeli_flist_put(qel_flist_t* fl, uint32_t fld, int32_t elem_id, void* value, qel_errbuf_t* eb)
{
    const uint32_t type = QEL_FLD_TYPE(fld);
    const uint32_t errnum = qel::storing_error(fl, fld, elem_id, value);
    if (errnum == QEL_ERR_NONE && qel::is_list_type(type)) {
        qel::list_ptr owner(static_cast<qel_flist*>(value)); // the list itself moves in, not a copy
        qel::guarded(eb, QEL_LOC_FLIST,
                     [&] { fl->fields[fld].insert_or_assign(qel::kept_id(fld, elem_id), std::move(owner)); });
        return;
    }
    qeli_flist_set(fl, fld, elem_id, value, eb);
    if (value != fl) {
        qel::destroy_handed_over(type, value);
    }
}

int32_t qel_flist_elem_count(qel_flist_t* fl, uint32_t fld, qel_errbuf_t* eb)
{
    if (fl == nullptr) {
        qel::raise(eb, {QEL_LOC_FLIST, QEL_ERR_BAD_ARG, fld});
        return 0;
    }
    const auto field = fl->fields.find(fld);
    return field != fl->fields.end() ? static_cast<int32_t>(field->second.size()) : 0;
}

qel_flist_t* qel_flist_elem_add(qel_flist_t* fl, uint32_t fld, int32_t elem_id, qel_errbuf_t* eb)
{
    if (fl == nullptr || elem_id == QEL_ELEM_ANY || QEL_FLD_TYPE(fld) != QEL_TYPE_ARRAY) {
        const bool wrong_type = fl != nullptr && elem_id != QEL_ELEM_ANY;
        qel::raise(eb, {QEL_LOC_FLIST, wrong_type ? QEL_ERR_BAD_TYPE : QEL_ERR_BAD_ARG, fld, elem_id});
        return nullptr;
    }
    return qel::guarded(eb, QEL_LOC_FLIST, [&]() -> qel_flist* {
        if (qel::value* present = qel::find(*fl, fld, elem_id)) {
            return std::get<qel::list_ptr>(*present).get();
        }
        auto element = std::make_unique<qel_flist>();
        qel_flist* added = element.get();
        fl->fields[fld].insert_or_assign(elem_id, std::move(element));
        return added;
    });
}
