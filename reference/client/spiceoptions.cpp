// SPDX-License-Identifier: LGPL-2.1-or-later
#include "spiceoptions.h"

#include <memory>

#include <spice-client.h>

namespace {

std::unique_ptr<GOptionContext, decltype(&g_option_context_free)> spiceOptions()
{
    GOptionContext *const context = g_option_context_new(nullptr);
    g_option_context_set_help_enabled(context, FALSE);
    g_option_context_set_ignore_unknown_options(context, TRUE);
    g_option_context_add_group(context, spice_get_option_group());
    return {context, &g_option_context_free};
}

} // namespace

QString takeSpiceOptions(int &count, char **&arguments)
{
    g_autoptr(GError) error = nullptr;
    const bool areRead = g_option_context_parse(spiceOptions().get(), &count, &arguments, &error);
    return areRead ? QString() : QString::fromUtf8(error->message) + QStringLiteral(" (see --help-spice)");
}

QString spiceOptionsHelp()
{
    g_autofree gchar *text = g_option_context_get_help(spiceOptions().get(), FALSE, nullptr);
    return QString::fromUtf8(text).trimmed();
}
