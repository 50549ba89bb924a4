/* kiv_reference: prints docs/reference.md from the library's operation table (reference.cmake
 * writes or checks the file).  Reads the table through kivc.h only, as any host would. */
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kivc.h"

typedef struct {
    char* s;
    size_t n, cap;
} Buf;

static void put(Buf* b, const char* fmt, ...) {
    va_list ap;
    int need;
    va_start(ap, fmt);
    need = vsnprintf(NULL, 0, fmt, ap);
    va_end(ap);
    if (b->n + (size_t)need + 1 > b->cap) {
        b->cap = (b->n + (size_t)need + 1) * 2;
        b->s = (char*)realloc(b->s, b->cap);
        if (!b->s) exit(3);
    }
    va_start(ap, fmt);
    vsnprintf(b->s + b->n, (size_t)need + 1, fmt, ap);
    va_end(ap);
    b->n += (size_t)need;
}

static const char* type_name(int t) {
    static const char* names[] = {"void", "int", "unsigned", "real", "bool", "choice", "COLORREF", "tagRECT*",
                                  "image", "path", "COLORREF[]", "tagGRADCOLORS[]", "tagSYSCOL[]", "int[]",
                                  "bytes", "DIB", "tagLOGPALETTE*", "unsigned long"};
    return t >= 0 && t < (int)(sizeof names / sizeof names[0]) ? names[t] : "?";
}

static void outcome(Buf* b, int o, double value) {
    switch (o) {
        case KIV_OUT_REFUSED: put(b, "refused"); break;
        case KIV_OUT_DEPTH: put(b, "refused (a palettized image is raised to 24 bits first)"); break;
        case KIV_OUT_EMPTIED: put(b, "refused, the image left empty"); break;
        case KIV_OUT_CLAMPED: put(b, "clamped to %g", value); break;
        case KIV_OUT_REPLACED: put(b, "taken as %g", value); break;
        case KIV_OUT_UNCHANGED: put(b, "accepted, nothing changes"); break;
        default: break;
    }
}

static void outside(Buf* b, const kiv_argdesc* a) {
    const int lo = a->flags & KIV_ARG_LO, hi = a->flags & KIV_ARG_HI;
    const int pointer = a->type >= KIV_T_RECT && a->type != KIV_T_ULONG && a->type != KIV_T_DEFAULT;
    if (a->choices) {
        put(b, "other values: ");
        outcome(b, a->above, a->above_value);
    } else if (lo && hi && a->below == a->above &&
               (a->below != KIV_OUT_CLAMPED && (a->below != KIV_OUT_REPLACED || a->below_value == a->above_value))) {
        outcome(b, a->below, a->below_value);
    } else {
        if (lo) put(b, "below: "), outcome(b, a->below, a->below_value);
        if (hi) put(b, "%sabove: ", lo ? "; " : ""), outcome(b, a->above, a->above_value);
    }
    if ((a->flags & KIV_ARG_FINITE) && !lo && !hi) put(b, "not finite: refused");
    if (pointer && !(a->flags & KIV_ARG_NULL)) put(b, "%snull: refused", lo || hi ? "; " : "");
    if (a->flags & KIV_ARG_IF_NULL) put(b, " (ignored when the next argument is given)");
}

static void generate(Buf* b) {
    const char* family = "";
    int op, k, c;
    put(b, "# kivlib operation reference\n\n");
    put(b, "Generated from the library's operation table by `kiv_reference` (`cmake --build --preset linux "
           "--target reference`); do not edit by hand. Library version %s.\n\n", kiv_version());
    put(b, "Each operation is a member of `kiv` (`include/kiv.h`, where each is documented in full) and a C "
           "function `kiv_NAME` (`include/kivc.h`), except the free functions, which keep their own names. "
           "Through `kiv_op_call` an operation takes its arguments as listed here: a parameter record's fields "
           "are arguments of their own, and an array carries its element count. *Outside* says what the "
           "operation does with a value outside the range; *refused* means it fails (0, null, or nothing for "
           "a void member) and leaves the image as it was.\n");
    for (op = 0; op < kiv_op_count(); ++op) {
        const kiv_opdesc* d = kiv_op_info(op);
        if (strcmp(family, d->family) != 0) {
            family = d->family;
            put(b, "\n## %s\n", family);
        }
        put(b, "\n### %s\n\n`%s %s%s(%s", d->name, type_name(d->result), d->flags & KIV_OP_FREE ? "" : "kiv_", d->name,
            d->flags & (KIV_OP_STATIC | KIV_OP_FREE) ? "" : "img");
        for (k = 0; k < d->nargs; ++k)
            put(b, "%s%s", k || !(d->flags & (KIV_OP_STATIC | KIV_OP_FREE)) ? ", " : "", d->args[k].name);
        put(b, ")`: %s.\n", d->summary);
        if (d->record[0])
            put(b, "\nThe arguments marked *field* are the fields of `%s`; a null record %s.\n", d->record,
                d->flags & KIV_OP_NULL_RECORD ? "means each field at its default" : "is refused");
        if (d->nargs > 0) {
            put(b, "\n| argument | type | unit | range | outside | default | meaning |\n|---|---|---|---|---|---|---|\n");
            for (k = 0; k < d->nargs; ++k) {
                const kiv_argdesc* a = &d->args[k];
                put(b, "| %s%s | %s | %s | %s | ", a->name, a->flags & KIV_ARG_FIELD ? " (field)" : "", type_name(a->type),
                    a->unit, a->range);
                outside(b, a);
                put(b, " | ");
                if (a->flags & KIV_ARG_DEFAULT) {
                    if (a->type >= KIV_T_RECT)
                        put(b, "null");
                    else
                        put(b, "%g", a->def);
                }
                put(b, " | %s", a->help);
                for (c = 0; c < a->nchoices; ++c) put(b, "%s%d %s", c ? ", " : ": ", a->choices[c].value, a->choices[c].name);
                put(b, " |\n");
            }
        }
        if (d->refuses[0]) put(b, "\nAlso fails for: %s.\n", d->refuses);
    }
}

int main(void) {
    Buf b = {NULL, 0, 0};
    size_t n;
    generate(&b);
    n = fwrite(b.s, 1, b.n, stdout);
    free(b.s);
    return n == b.n && fflush(stdout) == 0 ? 0 : 1;
}
