! Writes sample FLD files whose every value follows from a formula. The byte order and the
! longest sub-record are fixed when this file is compiled: the runtime takes both from the
! options of the main program.
program write_samples
    use, intrinsic :: iso_fortran_env, only: error_unit
    use annulus_dataset, only: write_annulus
    use duct_dataset, only: write_duct
    use fld_items, only: fld_format
    use overlap_dataset, only: write_overlap
    implicit none

    ! The smallest duct with all four kinds of cell, and the largest whose counts fit 32 bits.
    integer, parameter :: smallest_size = 4, default_size = 5, largest_size = 600

    character(len=:), allocatable :: directory, only_dataset
    type(fld_format) :: format
    integer :: size_of_grid

    call read_arguments()
    if (wanted('duct')) call write_duct(directory, format, size_of_grid)
    if (wanted('annulus')) call write_annulus(directory, format, size_of_grid)
    if (wanted('overlap')) call write_overlap(directory, format, size_of_grid)

contains

    logical function wanted(dataset)
        character(len=*), intent(in) :: dataset

        wanted = only_dataset == '' .or. only_dataset == dataset
    end function wanted

    ! ---- arguments ----

    subroutine read_arguments()
        integer :: i

        directory = ''
        only_dataset = ''
        size_of_grid = default_size
        i = 1
        do while (i <= command_argument_count())
            if (index(argument(i), '--') == 1) then
                call read_option(argument(i), argument(i + 1))
                i = i + 2
            else
                if (directory /= '') call refuse('more than one directory: "'//argument(i)//'"')
                directory = argument(i)
                if (directory == '') call refuse('the directory is empty')
                i = i + 1
            end if
        end do
        if (directory == '') call refuse('no directory given')
    end subroutine read_arguments

    subroutine read_option(option, value)
        character(len=*), intent(in) :: option, value

        select case (option)
        case ('--size')
            size_of_grid = whole_number(option, value, smallest_size, largest_size)
        case ('--values-per-record')
            format%values_per_record = whole_number(option, value, 1, huge(1))
        case ('--precision')
            if (value /= 'single' .and. value /= 'double') &
                call refuse('--precision needs single or double, not "'//value//'"')
            format%real_size = merge(8, 4, value == 'double')
        case ('--only')
            if (value /= 'duct' .and. value /= 'annulus' .and. value /= 'overlap') &
                call refuse('--only needs duct, annulus or overlap, not "'//value//'"')
            only_dataset = value
        case default
            call refuse('unknown option "'//option//'"')
        end select
    end subroutine read_option

    integer function whole_number(option, value, lowest, highest)
        character(len=*), intent(in) :: option, value
        integer, intent(in) :: lowest, highest
        character(len=64) :: message
        integer :: status

        status = 1
        if (value /= '' .and. verify(value, '0123456789') == 0) &
            read (value, '(i20)', iostat=status) whole_number
        if (status == 0) then
            if (whole_number >= lowest .and. whole_number <= highest) return
        end if
        write (message, '(a, i0, a, i0)') ' needs a whole number from ', lowest, ' to ', highest
        call refuse(option//trim(message)//', not "'//value//'"')
    end function whole_number

    ! An argument of the command; nothing beyond the last one.
    function argument(number) result(text)
        integer, intent(in) :: number
        character(len=:), allocatable :: text
        integer :: length

        length = 0
        if (number <= command_argument_count()) call get_command_argument(number, length=length)
        allocate (character(len=length) :: text)
        if (length > 0) call get_command_argument(number, text)
    end function argument

    subroutine refuse(reason)
        character(len=*), intent(in) :: reason

        write (error_unit, '(3a)') 'write_samples: ', reason, '; usage: write_samples '// &
            'DIRECTORY [--size N] [--precision single|double] '// &
            '[--only duct|annulus|overlap] [--values-per-record M]'
        stop 2, quiet=.true.
    end subroutine refuse
end program write_samples
