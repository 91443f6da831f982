#pragma once

/// \file
/// The host's reload hooks as the Bridge of this sample knows them; both programs include this.

/// Exports of the host: tables of one function each.
constexpr char beforeReloadHooksName[] = "beforeReloadHooks";
constexpr char afterReloadHooksName[] = "afterReloadHooks";
constexpr unsigned hookCount = 1;

/// The kinds that this sample's Bridge calls them with. Both pass a text and a number.
constexpr unsigned beforeReloadKind = 0;
constexpr unsigned afterReloadKind = 1;
