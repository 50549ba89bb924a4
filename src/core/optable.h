// The operation table: for every operation its arguments with their ranges, defaults and
// help, and one invoker per row that calls the member with arguments taken from kiv_values.
// It is the one place a parameter's range is written; kivc.h exposes it read-only.
#ifndef KIV_CORE_OPTABLE_H
#define KIV_CORE_OPTABLE_H

#include <initializer_list>
#include <string>
#include <vector>

#include "kiv.h"
#include "kivc.h"

namespace kivops {

// The arguments of one call, already checked against the row's types.  An accessor that
// reads a slot of another type marks the call bad (a fault in the row, caught by the tests).
struct Args {
    const kiv_value* v;
    mutable bool bad = false;

    bool is(int k, std::initializer_list<int> types) const;
    int i(int k) const { return is(k, {KIV_T_INT, KIV_T_BOOL, KIV_T_CHOICE}) ? static_cast<int>(v[k].i) : 0; }
    unsigned u(int k) const { return is(k, {KIV_T_UINT}) ? static_cast<unsigned>(v[k].i) : 0u; }
    COLORREF c(int k) const { return is(k, {KIV_T_COLOR}) ? static_cast<COLORREF>(v[k].i) : 0; }
    double d(int k) const { return is(k, {KIV_T_REAL}) ? v[k].d : 0.0; }
    int n(int k) const { return v[k].n; }
    tagRECT* rect(int k) const { return ptr<tagRECT>(k, KIV_T_RECT); }
    kiv* img(int k) const { return ptr<kiv>(k, KIV_T_IMAGE); }
    const char* str(int k) const { return ptr<const char>(k, KIV_T_STRING); }
    void* dib(int k) const { return ptr<void>(k, KIV_T_DIB); }
    tagLOGPALETTE* pal(int k) const { return ptr<tagLOGPALETTE>(k, KIV_T_PALETTE); }
    template <class T>
    T* ptr(int k, int type) const {
        return is(k, {type}) ? static_cast<T*>(const_cast<void*>(v[k].p)) : nullptr;
    }
};

// What the member returned: i for int results (1 for void members), p for pointers.  A
// non-null why refuses the call with that reason: the wrapper's own (before the member
// runs), or the one a member that gives reasons returned.
struct Result {
    long long i = 1;
    void* p = nullptr;
    const char* why = nullptr;
};
inline Result ret(int r) { return Result{r}; }
inline Result ret(unsigned long r) { return Result{static_cast<long long>(r)}; }
inline Result ret(void* p) { return Result{p != nullptr, p}; }

using Invoke = Result (*)(kiv* im, const Args& a);

struct Row {
    kiv_opdesc desc;
    Invoke call;
    std::vector<kiv_argdesc> args;
    std::vector<std::string> ranges;  // storage for args[k].range
};

const std::vector<Row>& table();
int find(const char* name);  // -1 when unknown

// The C interface's entry: kiv_op_call's checks and reasons, with each value's type taken from
// the row when it is 0 (so the C functions need not spell the types).
int call(kiv_image* img, int op, const kiv_value* args, int nargs, kiv_value* result, bool stamp);
// The calling thread's reason; set_error formats it, clear_error empties it.
void set_error(const char* fmt, ...);
void clear_error();

// Builds the rows (optable_rows.cpp).
void add_rows(std::vector<Row>& rows);

}  // namespace kivops

#endif
