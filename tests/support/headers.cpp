// SPDX-License-Identifier: MIT
//
// Empty: what is compiled here is the list of headers in CMakeLists.txt.
