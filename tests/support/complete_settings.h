#ifndef TESTS_SUPPORT_COMPLETE_SETTINGS_H
#define TESTS_SUPPORT_COMPLETE_SETTINGS_H

/* What the library asserts, in the source tavren_api, of a settings record that it copies. */
constexpr char settings_are_complete[] =
    "src->host != NULL && src->dir != NULL && src->user != NULL && src->password != NULL && src->host_key != NULL && "
    "src->fingerprint != NULL";

#endif
