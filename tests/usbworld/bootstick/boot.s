# SPDX-License-Identifier: LGPL-2.1-or-later
#
# Boot sector of the test stick: prints the text in sector 1 on the first serial port, then reads as many sectors from
# the start of the drive as the fields at the end ask for, prints their checksum as "SUM xxxxxxxx" and halts.
# A read that fails prints "ERR xx" with the status of the BIOS.

        .code16
        .set SECTORS_A_READ, 127        # the most that one call may ask for
        .set BUFFER, 0x1000             # segment, clear of the code and of the BIOS data
        .set TEXT, 0x7e00               # right behind the boot sector
        .set SERIAL, 0x3f8

        .text
        .globl _start
_start:
        cli
        xorw    %ax, %ax
        movw    %ax, %ds
        movw    %ax, %es
        movw    %ax, %ss
        movw    $0x7c00, %sp
        sti
        cld
        movb    %dl, drive

        movw    $TEXT, packet_offset
        movl    $1, packet_sector
        movw    $1, packet_count
        call    read
        movw    $TEXT, %si
        call    print

        movl    sectors, %ecx
        testl   %ecx, %ecx
        jz      halt
        movw    $0, packet_offset
        movw    $BUFFER, packet_segment
        movl    $0, packet_sector
        xorl    %ebx, %ebx              # the checksum
chunk:
        movl    $SECTORS_A_READ, %eax
        cmpl    %eax, %ecx
        jae     1f
        movl    %ecx, %eax
1:      movw    %ax, packet_count
        subl    %eax, %ecx
        pushl   %eax
        pushl   %ecx
        pushl   %ebx
        call    read
        popl    %ebx
        popl    %ecx
        popl    %eax
        addl    %eax, packet_sector
        call    checksum
        testl   %ecx, %ecx
        jnz     chunk

        movw    $sum_label, %si
        call    print
        movl    %ebx, %eax
        movw    $8, %cx
        call    print_hex
end_line:
        movw    $line_end, %si
        call    print
halt:
        hlt
        jmp     halt

# Adds the sectors that %ax counts to %ebx: the sum is turned by one bit before each word, so that order matters.
checksum:
        pushl   %ecx
        movw    %ax, %cx
        shlw    $7, %cx                 # 128 words of four bytes in a sector
        xorw    %si, %si
        movw    $BUFFER, %ax
        movw    %ax, %ds
1:      lodsl
        roll    $1, %ebx
        addl    %eax, %ebx
        loop    1b
        popl    %ecx
        xorw    %ax, %ax
        movw    %ax, %ds
        ret

# Reads what the packet says.
read:
        movw    $packet, %si
        movb    drive, %dl
        movb    $0x42, %ah
        int     $0x13
        jc      failed
        ret
failed:
        pushw   %ax
        movw    $error_label, %si
        call    print
        popw    %ax
        shll    $16, %eax               # the status is in the highest byte now
        movw    $2, %cx
        call    print_hex
        jmp     end_line

# Prints the %cx highest digits of %eax.
print_hex:
        roll    $4, %eax
        pushl   %eax
        andb    $0x0f, %al
        addb    $'0', %al
        cmpb    $'9', %al
        jbe     1f
        addb    $('a' - '0' - 10), %al
1:      call    put
        popl    %eax
        loop    print_hex
        ret

# Prints the text at %si up to its zero byte.
print:
        lodsb
        testb   %al, %al
        jz      1f
        call    put
        jmp     print
1:      ret

put:
        movb    %al, %ah
        movw    $(SERIAL + 5), %dx
1:      inb     %dx, %al
        testb   $0x20, %al              # room for a character?
        jz      1b
        movb    %ah, %al
        movw    $SERIAL, %dx
        outb    %al, %dx
        ret

sum_label:
        .asciz  "\r\nSUM "
error_label:
        .asciz  "\r\nERR "
line_end:
        .asciz  "\r\n"
drive:
        .byte   0
packet:                                 # of the extended read
        .byte   16, 0
packet_count:
        .word   0
packet_offset:
        .word   0
packet_segment:
        .word   0
packet_sector:
        .quad   0

        .org    504
sectors:                                # to be summed, filled in when a stick is made
        .long   0
        .org    510
        .word   0xaa55
