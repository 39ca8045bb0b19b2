# What a run of a static launcher calls, put together in the file.
#
# The C library is most of a static launcher's code, and a quarter of it is called, from everywhere. A kernel reads and
# maps a file by sixteen pages and more, so that all of it came from the flash and into memory: 692 KiB. With what is
# called in front, it is 372 (amd64, UTF-8, 16 disabled entries). The functions are the same, in another order.
#
# Named are the members of libc.a that runs called on amd64 and armhf (glibc 2.36): with a configuration in UTF-8 and in
# GB2312, with a damaged one, with services started and stopped. A name that a C library does not have is passed over.
# Where this fits a later one no more, `scripts/footprint --check amd64` shows it in the peak of the resident memory.
set(wyvern_called_members
    _exit brk bsd-_setjmp clone clone-internal clone3 close_nocancel closedir ctype-info cxa_atexit dl-debug dl-early_allocate
    dl-find_object dl-load dl-lookup dl-object dl-origin dl-reloc dl-setup_hash dl-support dl-tls dl-tls_init_tp
    dl-tunables elision-conf execve exit feof ferror filedoalloc fileno fileops fnmatch fstat64 fstatat64 genops
    getdents64 getenv getrandom getrlimit getrlimit64 init-first init-misc iofclose iofflush iofopen iofopen64
    iofread iosetvbuf libc-cleanup libc-do-syscall libc-start libc-tls libc_early_init libc_sigaction malloc memchr
    memchr_neon memcmp memcpy memcpy_neon memmove mempcpy memset mmap mmap64 mprotect munmap open open64
    open64_nocancel open_nocancel opendir printf_chk pthread_mutex_conf pthread_mutex_init pthread_mutex_lock
    pthread_mutex_unlock pthread_setcancelstate pthread_sigmask rawmemchr read readdir64 sbrk setjmp sigaction
    sigjmp sigprocmask snprintf_chk spawn spawnattr_destroy spawnattr_init spawnattr_setdefault spawnattr_setflags
    spawnattr_setsigmask spawni stpcpy strcasecmp strcasecmp_l strcat strchr strchrnul strcmp strcpy strcspn
    strcspn-sse4 strdup strlen strncase strncmp strnlen strops strrchr strsep strspn strstr strstr-avx512
    strstr-sse2-unaligned strtol strtol_l system vfprintf-internal vsnprintf wait4 waitpid wcscpy wcslen wcsnlen
    wmemchr wmemcmp wmemset write)

include(CheckLinkerFlag)

# wyvern_put_called_first(<executable>): by a linker script that is added to the linker's own. A linker that does not know
# such scripts, as gold, leaves the functions where they are.
function(wyvern_put_called_first target)
    list(TRANSFORM wyvern_called_members REPLACE "(.+)" "    *libc.a:\\1.o(.text)" OUTPUT_VARIABLE members)
    list(JOIN members "\n" members)
    set(script "${CMAKE_CURRENT_BINARY_DIR}/text-order.ld")
    # Of each string function there is one for each kind of processor, chosen at the start; those of today's stand in
    # sections of their own.
    file(CONFIGURE OUTPUT "${script}" @ONLY CONTENT "SECTIONS
{
  .text.called :
  {
@members@
    *libc.a:*(.text.avx .text.avx512 .text.evex .text.evex512)
    *libstdc++.a:*(.text._Zn* .text._Zd* .text.__cxa_guard_* .text._ZNSt7__cxx1112basic* .text._ZNKSt7__cxx1112basic*)
    *libgcc_eh.a:unwind-dw2-fde-dip.o(.text)
    *libWyvernLibiconv.a:*(.text.libiconv* .text.aliases_lookup .text.unicode_loop_convert .text.euc_cn_mbtowc)
    *libWyvernTinyXml.a:*(.text .text.*)
  }
}
INSERT BEFORE .text;
")
    check_linker_flag(CXX "LINKER:-T,${script}" WYVERN_LINKER_TAKES_A_SCRIPT)
    if(WYVERN_LINKER_TAKES_A_SCRIPT)
        target_link_options(${target} PRIVATE "LINKER:-T,${script}")
        set_target_properties(${target} PROPERTIES LINK_DEPENDS "${script}")
    endif()
endfunction()
