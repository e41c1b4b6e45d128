// utils.cpp: see utils.h. Keeps no state: the environment is looked at each time.
#include "utils.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "morp_defs.h"
#include "run.h"

[[gnu::used, gnu::retain]] static const char kVersion[] = "@(#)morp utils 1.0";

static constexpr const char *edtype_vars[] = {"Q_VXEDITOR", "VISUAL", "EDITOR"};

// The style that the name of an editor stands for, 0 when none.
static int valid_editor_type(const char *sp) {
    if (sp == nullptr) return 0;
    std::string_view name = sp;
    const auto slash = name.rfind('/');
    if (slash != std::string_view::npos) name.remove_prefix(slash + 1);
    if (name.ends_with("vi")) return kStyleVi;
    if (name == "gmacs") return kStyleGmacs;
    if (name.ends_with("macs")) return kStyleEmacs;
    return 0;
}

int get_editor_type() {
    for (const char *variable : edtype_vars) {
        const int type = valid_editor_type(getenv(variable));
        if (type != 0) return type;
    }
    return kStyleVi;
}

char *e_movstr(const char *a, char *b) { return stpcpy(b, a); }

void e_failed(const char *name, const char *message) {
    if (Before_end != nullptr) Before_end();
    (void)fprintf(stderr, "%s : %s\n", name != nullptr ? name : "",
                  message != nullptr ? message : "");
    exit(2);
}
