! The item layer of an FLD file. Every value is an item: a descriptor record (bytes per element,
! elements per record, number of records) and then the data records. The record framing itself
! (length markers, byte order, sub-records) is left to the Fortran runtime.
module fld_items
    use, intrinsic :: iso_fortran_env, only: error_unit, int32, real32, real64
    implicit none
    private

    public :: fld_format, fld_file
    public :: open_fld, close_fld, put_signature, put_name, put_end
    public :: put_int, put_ints, put_single, put_real, put_reals, put_text

    integer(int32), parameter :: format_version = 4
    integer, parameter :: name_length = 32

    ! How the values of a dataset are stored.
    type :: fld_format
        integer :: real_size = 4          ! bytes of a real: 4 or 8
        integer :: values_per_record = 0  ! 0: a whole array in one record
    end type fld_format

    type :: fld_file
        integer :: unit
        character(len=:), allocatable :: path
        type(fld_format) :: format
    end type fld_file

contains

    ! ---- files ----

    subroutine open_fld(file, path, format)
        type(fld_file), intent(out) :: file
        character(len=*), intent(in) :: path
        type(fld_format), intent(in) :: format
        character(len=256) :: message
        integer :: status

        file%path = path
        file%format = format
        open (newunit=file%unit, file=path, form='unformatted', access='sequential', &
              action='write', status='replace', iostat=status, iomsg=message)
        call check(file, status, message)
    end subroutine open_fld

    subroutine close_fld(file)
        type(fld_file), intent(in) :: file
        character(len=256) :: message
        integer :: status

        ! The last buffer goes out here: neither close nor flush reports that the disk is full.
        endfile (file%unit, iostat=status, iomsg=message)
        call check(file, status, message)
        close (file%unit, iostat=status, iomsg=message)
        call check(file, status, message)
    end subroutine close_fld

    ! A sample that is not whole is of no use, so the first failure ends the program.
    subroutine check(file, status, message)
        type(fld_file), intent(in) :: file
        integer, intent(in) :: status
        character(len=*), intent(in) :: message

        if (status == 0) return
        write (error_unit, '(4a)') 'write_samples: cannot write "', file%path, '": ', trim(message)
        stop 1, quiet=.true.
    end subroutine check

    ! ---- records that are no items ----

    subroutine put_signature(file)
        type(fld_file), intent(in) :: file
        character(len=256) :: message
        integer :: status

        write (file%unit, iostat=status, iomsg=message) 'CRDL-FLD'
        call check(file, status, message)
        write (file%unit, iostat=status, iomsg=message) format_version
        call check(file, status, message)
    end subroutine put_signature

    ! A name record: a header keyword or the name of a section.
    subroutine put_name(file, name)
        type(fld_file), intent(in) :: file
        character(len=*), intent(in) :: name
        character(len=name_length) :: padded
        character(len=256) :: message
        integer :: status

        padded = name
        write (file%unit, iostat=status, iomsg=message) padded
        call check(file, status, message)
    end subroutine put_name

    ! The end record, which closes a list of items.
    subroutine put_end(file)
        type(fld_file), intent(in) :: file

        call put_triple(file, 0_int32, 0_int32, 0_int32)
    end subroutine put_end

    subroutine put_triple(file, first, second, third)
        type(fld_file), intent(in) :: file
        integer(int32), intent(in) :: first, second, third
        character(len=256) :: message
        integer :: status

        write (file%unit, iostat=status, iomsg=message) first, second, third
        call check(file, status, message)
    end subroutine put_triple

    ! Writes the descriptor of an item of `count` elements. An empty item still has one record,
    ! an empty one, and 0 elements per record.
    subroutine put_descriptor(file, element_size, count, per_record)
        type(fld_file), intent(in) :: file
        integer(int32), intent(in) :: element_size, count
        integer(int32), intent(out) :: per_record
        integer(int32) :: records

        per_record = count
        if (file%format%values_per_record > 0) &
            per_record = min(count, int(file%format%values_per_record, int32))
        records = 1
        if (count > 0) records = 1 + (count - 1)/per_record
        call put_triple(file, element_size, per_record, records)
    end subroutine put_descriptor

    ! ---- items ----

    subroutine put_int(file, value)
        type(fld_file), intent(in) :: file
        integer(int32), intent(in) :: value

        call put_ints(file, [value])
    end subroutine put_int

    subroutine put_ints(file, values)
        type(fld_file), intent(in) :: file
        integer(int32), intent(in) :: values(:)
        character(len=256) :: message
        integer(int32) :: per_record, first, taken
        integer :: status

        call put_descriptor(file, 4_int32, size(values), per_record)
        do first = 1, max(size(values), 1), max(per_record, 1)
            taken = min(per_record, size(values) - first + 1)
            write (file%unit, iostat=status, iomsg=message) values(first:first + taken - 1)
            call check(file, status, message)
        end do
    end subroutine put_ints

    ! One real in the precision of the file.
    subroutine put_real(file, value)
        type(fld_file), intent(in) :: file
        real(real64), intent(in) :: value

        call put_reals(file, [value])
    end subroutine put_real

    ! One real that is single whatever the precision of the file.
    subroutine put_single(file, value)
        type(fld_file), intent(in) :: file
        real(real32), intent(in) :: value

        call put_singles(file, [value])
    end subroutine put_single

    ! An array of reals in the precision of the file.
    subroutine put_reals(file, values)
        type(fld_file), intent(in) :: file
        real(real64), intent(in) :: values(:)
        real(real32), allocatable :: rounded(:)

        if (file%format%real_size == 8) then
            call put_doubles(file, values)
        else
            rounded = real(values, real32)
            call put_singles(file, rounded)
        end if
    end subroutine put_reals

    subroutine put_singles(file, values)
        type(fld_file), intent(in) :: file
        real(real32), intent(in) :: values(:)
        character(len=256) :: message
        integer(int32) :: per_record, first, taken
        integer :: status

        call put_descriptor(file, 4_int32, size(values), per_record)
        do first = 1, max(size(values), 1), max(per_record, 1)
            taken = min(per_record, size(values) - first + 1)
            write (file%unit, iostat=status, iomsg=message) values(first:first + taken - 1)
            call check(file, status, message)
        end do
    end subroutine put_singles

    subroutine put_doubles(file, values)
        type(fld_file), intent(in) :: file
        real(real64), intent(in) :: values(:)
        character(len=256) :: message
        integer(int32) :: per_record, first, taken
        integer :: status

        call put_descriptor(file, 8_int32, size(values), per_record)
        do first = 1, max(size(values), 1), max(per_record, 1)
            taken = min(per_record, size(values) - first + 1)
            write (file%unit, iostat=status, iomsg=message) values(first:first + taken - 1)
            call check(file, status, message)
        end do
    end subroutine put_doubles

    ! Every record of a text is full, the last one padded with blanks: its length is the product of
    ! the descriptor's numbers.
    subroutine put_text(file, text)
        type(fld_file), intent(in) :: file
        character(len=*), intent(in) :: text
        character(len=256) :: message
        integer(int32) :: per_record, first, taken
        integer :: status

        call put_descriptor(file, 1_int32, len(text), per_record)
        do first = 1, max(len(text), 1), max(per_record, 1)
            taken = min(per_record, len(text) - first + 1)
            write (file%unit, iostat=status, iomsg=message) &
                text(first:first + taken - 1)//repeat(' ', per_record - taken)
            call check(file, status, message)
        end do
    end subroutine put_text
end module fld_items
