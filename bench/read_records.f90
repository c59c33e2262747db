! Reads an FLD file as a program of the solver's own language would: record by record into arrays,
! knowing of the format only names, descriptors and data records.
module read_records
    use, intrinsic :: iso_c_binding, only: c_char, c_int64_t
    use, intrinsic :: iso_fortran_env, only: int32, int64, real64
    implicit none
    private

    public :: read_every_record

contains

    ! The number of records in the file; -1 when it cannot be read.
    function read_every_record(path, path_length, big_endian) result(records) bind(c)
        character(kind=c_char), intent(in) :: path(*)
        integer(c_int64_t), value :: path_length, big_endian
        integer(c_int64_t) :: records
        character(len=path_length) :: name
        character(len=13) :: order
        character(len=32) :: section
        character(len=8) :: magic
        integer(int32) :: version
        integer :: unit, status, i

        do i = 1, int(path_length)
            name(i:i) = path(i)
        end do
        order = merge('big_endian   ', 'little_endian', big_endian /= 0)
        records = -1
        open (newunit=unit, file=name, form='unformatted', access='sequential', action='read', &
              status='old', convert=trim(order), iostat=status)
        if (status /= 0) return
        records = 2
        read (unit) magic
        read (unit) version
        do
            read (unit) section
            records = records + 1
            if (section == 'OverlapEnd') exit
            if (section == 'HeaderDataEnd' .or. section(:13) == 'OverlapStart_') cycle
            call read_items(unit, records)
        end do
        close (unit)
    end function read_every_record

    ! Reads items up to their end record. An array follows the integer that counts its values: its
    ! last record is as short as they leave it.
    subroutine read_items(unit, records)
        integer, intent(in) :: unit
        integer(int64), intent(inout) :: records
        integer(int32) :: element_size, per_record, record_count, values

        values = 0
        do
            read (unit) element_size, per_record, record_count
            records = records + 1 + record_count
            if (element_size == 4 .and. per_record == 1 .and. record_count == 1) then
                read (unit) values
            else if (element_size == 4) then
                call read_words(unit, values, per_record)
            else if (element_size == 8) then
                if (per_record == 1 .and. record_count == 1) values = 1
                call read_doubles(unit, values, per_record)
            else if (element_size == 1) then
                call read_text(unit, per_record, record_count)
            else
                records = records - record_count
                return
            end if
        end do
    end subroutine read_items

    subroutine read_words(unit, count, per_record)
        integer, intent(in) :: unit
        integer(int32), intent(in) :: count, per_record
        integer(int32), allocatable :: values(:)
        integer(int32) :: first

        allocate (values(count))
        if (count == 0) read (unit)
        do first = 1, count, max(per_record, 1)
            read (unit) values(first:min(first + per_record - 1, count))
        end do
    end subroutine read_words

    subroutine read_doubles(unit, count, per_record)
        integer, intent(in) :: unit
        integer(int32), intent(in) :: count, per_record
        real(real64), allocatable :: values(:)
        integer(int32) :: first

        allocate (values(count))
        do first = 1, count, per_record
            read (unit) values(first:min(first + per_record - 1, count))
        end do
    end subroutine read_doubles

    subroutine read_text(unit, per_record, record_count)
        integer, intent(in) :: unit
        integer(int32), intent(in) :: per_record, record_count
        character(len=per_record) :: text
        integer :: i

        do i = 1, record_count
            read (unit) text
        end do
    end subroutine read_text
end module read_records
