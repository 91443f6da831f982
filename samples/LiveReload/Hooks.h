#pragma once

/// \file
/// The host's reload hooks, for the host and the Bridge of this sample.

/// Exports of the host: tables of one function each.
constexpr char beforeReloadHooksName[] = "beforeReloadHooks";
constexpr char afterReloadHooksName[] = "afterReloadHooks";
constexpr unsigned hookCount = 1;

/// The kinds that this sample's Bridge calls them with. Both pass a string and a number.
constexpr unsigned beforeReloadKind = 0;
constexpr unsigned afterReloadKind = 1;
