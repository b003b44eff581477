# Compiler flags of the library. Results are defined bit for bit, so the
# floating-point flags are not negotiable: no contraction into fused
# multiply-add (GCC contracts by default on 64-bit Arm) and no fast-math.
function(vorl_library_flags target)
  target_compile_options(${target} PRIVATE
    -ffp-contract=off -fno-fast-math -fno-exceptions -fno-rtti
    -Wall -Wextra -Wshadow -Wconversion -Wno-sign-conversion -Werror)
endfunction()

# Every target that runs the library's arithmetic in its own code (tests that
# recompute reference values, the tool) uses the same floating-point rules.
function(vorl_float_rules target)
  target_compile_options(${target} PRIVATE -ffp-contract=off -fno-fast-math)
endfunction()
