! A block of cells in three index directions, counted from 0, first direction fastest. The
! second direction may close on itself, as around an axis.
module hexahedral_block
    use, intrinsic :: iso_fortran_env, only: int32, real64
    use fld_sections, only: add_face, hexahedron, surface_region
    implicit none
    private

    public :: block_mesh, node_total, cell_total, node_number, cell_corners, block_indices
    public :: layer_at_side, block_elements, add_side

    ! The corners of a cell in the order of a stored hexahedron: the quadrilateral at the low
    ! end of the third direction, then the one at the high end.
    integer, parameter :: corner_steps(3, 0:7) = reshape( &
        [0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 1, 0, 1, 1, 1, 1, 0, 1, 1], [3, 8])

    ! The sides of a cell: low and high end of the first, the second and the third direction.
    ! The corners go round so that the normal points out of the cell.
    integer, parameter, public :: side_corners(4, 6) = reshape( &
        [0, 4, 7, 3, 1, 2, 6, 5, 0, 1, 5, 4, 3, 7, 6, 2, 0, 3, 2, 1, 4, 5, 6, 7], [4, 6])

    type :: block_mesh
        integer :: cells(3)
        integer :: bias                ! the number of the first node and of the first element
        logical :: closed = .false.    ! the second direction closes on itself
    end type block_mesh

contains

    ! The number of nodes in each direction.
    pure function node_planes(mesh) result(planes)
        type(block_mesh), intent(in) :: mesh
        integer :: planes(3)

        planes = mesh%cells + 1
        if (mesh%closed) planes(2) = mesh%cells(2)
    end function node_planes

    pure integer function node_total(mesh)
        type(block_mesh), intent(in) :: mesh

        node_total = product(node_planes(mesh))
    end function node_total

    pure integer function cell_total(mesh)
        type(block_mesh), intent(in) :: mesh

        cell_total = product(mesh%cells)
    end function cell_total

    pure integer(int32) function node_number(mesh, at)
        type(block_mesh), intent(in) :: mesh
        integer, intent(in) :: at(3)
        integer :: planes(3)

        planes = node_planes(mesh)
        node_number = mesh%bias + at(1) + planes(1)*(modulo(at(2), planes(2)) + planes(2)*at(3))
    end function node_number

    pure integer(int32) function cell_number(mesh, cell)
        type(block_mesh), intent(in) :: mesh
        integer, intent(in) :: cell(3)

        cell_number = mesh%bias + cell(1) + mesh%cells(1)*(cell(2) + mesh%cells(2)*cell(3))
    end function cell_number

    pure function cell_corners(mesh, cell) result(corners)
        type(block_mesh), intent(in) :: mesh
        integer, intent(in) :: cell(3)
        integer(int32) :: corners(0:7)
        integer :: c

        do c = 0, 7
            corners(c) = node_number(mesh, cell + corner_steps(:, c))
        end do
    end function cell_corners

    ! The index of every node in one direction, divided by the number of cells there: 0 to 1.
    function block_indices(mesh, direction) result(fraction)
        type(block_mesh), intent(in) :: mesh
        integer, intent(in) :: direction
        real(real64), allocatable :: fraction(:)
        integer :: planes(3), at(3), i, j, k, n

        planes = node_planes(mesh)
        allocate (fraction(product(planes)))
        n = 0
        do k = 0, planes(3) - 1
            do j = 0, planes(2) - 1
                do i = 0, planes(1) - 1
                    n = n + 1
                    at = [i, j, k]
                    fraction(n) = real(at(direction), real64)/real(mesh%cells(direction), real64)
                end do
            end do
        end do
    end function block_indices

    ! Narrows the cells `first` to `last` to the layer at one of their sides.
    pure subroutine layer_at_side(side, first, last)
        integer, intent(in) :: side
        integer, intent(inout) :: first(3), last(3)
        integer :: direction

        direction = (side + 1)/2
        if (modulo(side, 2) == 1) then
            last(direction) = first(direction)
        else
            first(direction) = last(direction)
        end if
    end subroutine layer_at_side

    ! One hexahedron per cell.
    subroutine block_elements(mesh, codes, nodes)
        type(block_mesh), intent(in) :: mesh
        integer(int32), allocatable, intent(out) :: codes(:), nodes(:)
        integer :: i, j, k, n

        allocate (codes(cell_total(mesh)), nodes(8*cell_total(mesh)))
        codes = hexahedron
        n = 0
        do k = 0, mesh%cells(3) - 1
            do j = 0, mesh%cells(2) - 1
                do i = 0, mesh%cells(1) - 1
                    nodes(n + 1:n + 8) = cell_corners(mesh, [i, j, k])
                    n = n + 8
                end do
            end do
        end do
    end subroutine block_elements

    ! Adds the quadrilaterals of one side of the block to a region.
    subroutine add_side(mesh, side, region)
        type(block_mesh), intent(in) :: mesh
        integer, intent(in) :: side
        type(surface_region), intent(inout) :: region
        integer(int32) :: corners(0:7)
        integer :: first(3), last(3), i, j, k

        first = 0
        last = mesh%cells - 1
        call layer_at_side(side, first, last)
        do k = first(3), last(3)
            do j = first(2), last(2)
                do i = first(1), last(1)
                    corners = cell_corners(mesh, [i, j, k])
                    call add_face(region, cell_number(mesh, [i, j, k]), &
                                  corners(side_corners(:, side)))
                end do
            end do
        end do
    end subroutine add_side
end module hexahedral_block
