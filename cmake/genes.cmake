# The engine's gene header, made from the table src/evaluation/genes.txt:
# the GENE_<ID> enum with GENE_NUMBER, GENE_SIZE, DEFAULT_GENES and the
# genes' ids and names, in <build>/generated/evaluation/genes.h. The header
# is written again only when the table says something new, and CMake runs
# again whenever the table changes.
set(VELKOR_GENE_TABLE ${CMAKE_CURRENT_SOURCE_DIR}/src/evaluation/genes.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${VELKOR_GENE_TABLE})
file(STRINGS ${VELKOR_GENE_TABLE} gene_lines REGEX "^[^#]")
set(gene_size "")
set(gene_enum "")
set(gene_defaults "")
set(gene_ids "")
set(gene_names "")
foreach(line IN LISTS gene_lines)
  if(line MATCHES "^bits +([0-9]+) *$")
    set(gene_size ${CMAKE_MATCH_1})
  elseif(line MATCHES "^([a-z_]+) +([0-9]+) +(.*[^ ]) *$")
    set(id ${CMAKE_MATCH_1})
    string(TOUPPER ${id} upper)
    string(APPEND gene_enum "    GENE_${upper},  // ${CMAKE_MATCH_3}\n")
    list(APPEND gene_defaults ${CMAKE_MATCH_2})
    list(APPEND gene_ids "\"${id}\"")
    list(APPEND gene_names "\"${CMAKE_MATCH_3}\"")
  elseif(NOT line MATCHES "^ *$")
    message(FATAL_ERROR "${VELKOR_GENE_TABLE}: not a gene: '${line}'")
  endif()
endforeach()
if(gene_size STREQUAL "" OR gene_defaults STREQUAL "")
  message(FATAL_ERROR "${VELKOR_GENE_TABLE}: no \"bits N\" line or no gene")
endif()
math(EXPR gene_max "(1 << ${gene_size}) - 1")
foreach(value IN LISTS gene_defaults)
  if(value GREATER gene_max)
    message(FATAL_ERROR "${VELKOR_GENE_TABLE}: a default of ${value} does not fit in ${gene_size} bits")
  endif()
endforeach()
list(JOIN gene_defaults ", " gene_defaults)
list(JOIN gene_ids ", " gene_ids)
list(JOIN gene_names ", " gene_names)
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/generated/evaluation/genes.h @ONLY CONTENT
"// Made by CMake (cmake/genes.cmake) from src/evaluation/genes.txt: edit
// the table, not this file.
#pragma once

#include <array>
#include <cstdint>

namespace velkor {

// The genes in the order of a -pbil= string.
enum : int {
@gene_enum@    GENE_NUMBER
};
inline constexpr int GENE_SIZE = @gene_size@;  // bits per gene in a -pbil= string
inline constexpr int32_t GENE_MAX = (1 << GENE_SIZE) - 1;  // the largest value a string gives

inline constexpr std::array<int32_t, GENE_NUMBER> DEFAULT_GENES = {@gene_defaults@};
inline constexpr std::array<const char*, GENE_NUMBER> GENE_IDS = {@gene_ids@};
inline constexpr std::array<const char*, GENE_NUMBER> GENE_NAMES = {@gene_names@};

}  // namespace velkor
")
