/* SPDX-License-Identifier: MIT */
/* Marks what a shared library exports; everything else is hidden. */
#ifndef LINXIPC_PLATFORM_EXPORT_H
#define LINXIPC_PLATFORM_EXPORT_H

#define LINXIPC_API __attribute__((visibility("default")))

#endif
