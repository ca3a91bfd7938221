# Builds the Rust shim over the pitch/formant library and the speech denoiser
# with cargo and exposes it as the imported static library `parlova_shifter`.
find_program(CARGO cargo HINTS $ENV{HOME}/.cargo/bin REQUIRED)
set(SHIFTER_DIR ${CMAKE_SOURCE_DIR}/dsp/shifter)
set(SHIFTER_TARGET_DIR ${CMAKE_BINARY_DIR}/cargo)
set(SHIFTER_LIB ${SHIFTER_TARGET_DIR}/release/libparlova_shifter.a)
add_custom_command(
  OUTPUT ${SHIFTER_LIB}
  COMMAND ${CMAKE_COMMAND} -E env CARGO_TARGET_DIR=${SHIFTER_TARGET_DIR}
          ${CARGO} build --release --locked --quiet --manifest-path ${SHIFTER_DIR}/Cargo.toml
  DEPENDS ${SHIFTER_DIR}/src/lib.rs ${SHIFTER_DIR}/src/denoise.rs ${SHIFTER_DIR}/Cargo.toml ${SHIFTER_DIR}/Cargo.lock
  COMMENT "Building the pitch/formant shifter (cargo)"
  USES_TERMINAL)
add_custom_target(parlova_shifter_build DEPENDS ${SHIFTER_LIB})
add_library(parlova_shifter STATIC IMPORTED GLOBAL)
set_target_properties(parlova_shifter PROPERTIES
  IMPORTED_LOCATION ${SHIFTER_LIB}
  INTERFACE_INCLUDE_DIRECTORIES ${SHIFTER_DIR}
  INTERFACE_LINK_LIBRARIES "stdc++;m;dl;Threads::Threads")
add_dependencies(parlova_shifter parlova_shifter_build)
